#include <spdlog/spdlog.h>

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/use_awaitable.hpp>

#include "base/AwaitCallback.h"
#include "base/Clock.h"
#include "deliver/CDeliveryQueue.h"

namespace ZELPC {

namespace {

constexpr auto kAsTuple = asio::as_tuple(asio::use_awaitable);
constexpr auto kMarkAgain = std::chrono::seconds(1);

}  // namespace

void CDeliveryQueue::Ready(const std::string& serial) {
    Lane& lane = lanes_.try_emplace(serial, options_.firstPause, options_.longestPause).first->second;
    if (lane.queued) {
        lane.again = true;
        return;
    }
    lane.queued = true;
    ready_.push_back(serial);
    Signal();
}

void CDeliveryQueue::ReadyAfterPause(const std::string& serial, Lane& lane) {
    asio::co_spawn(
        strand_,
        [self = shared_from_this(), serial, pause = lane.pause.Next()]() -> asio::awaitable<void> {
            co_await self->Sleep(pause);
            self->ready_.push_back(serial);
            self->Signal();
        },
        asio::detached);
}

void CDeliveryQueue::Leave(const std::string& serial, Lane& lane) {
    lane.queued = false;
    if (lane.again) {
        Ready(serial);
    } else if (lane.marked.empty()) {
        lanes_.erase(serial);
    }
}

void CDeliveryQueue::MarkDelivered(const std::string& serial, std::int64_t delivery) {
    store_.Mark({delivery, DeliveryState::kDelivered, 0, {}},
                [self = shared_from_this(), serial, delivery](const std::string* error) {
                    asio::post(self->strand_, [self, serial, delivery, done = error == nullptr] {
                        self->Marked(serial, delivery, done);
                    });
                });
}

void CDeliveryQueue::Marked(const std::string& serial, std::int64_t delivery, bool done) {
    if (done) {
        Lane& lane = lanes_.at(serial);
        lane.marked.erase(delivery);
        if (!lane.queued && lane.marked.empty()) {
            lanes_.erase(serial);
        }
        --unmarked_;
        Signal();
        return;
    }
    asio::co_spawn(
        strand_,
        [self = shared_from_this(), serial, delivery]() -> asio::awaitable<void> {
            co_await self->Sleep(kMarkAgain);
            if (self->stopping_) {
                --self->unmarked_;  // it will be delivered twice
            } else {
                self->MarkDelivered(serial, delivery);
            }
        },
        asio::detached);
}

/// Returns when the mark is on the disk, or the queue ends.
asio::awaitable<void> CDeliveryQueue::MarkSurely(const DeliveryMark& mark) {
    const auto start = [this, &mark](auto then) {
        store_.Mark(mark, [then](const std::string* error) { then(error == nullptr); });
    };
    while (!stopping_) {
        if (co_await AwaitCallback<bool>(start)) {
            co_return;
        }
        co_await Sleep(kMarkAgain);
    }
}

/// Returns early when the queue ends.
asio::awaitable<void> CDeliveryQueue::Sleep(std::chrono::milliseconds duration) {
    const auto end = std::chrono::steady_clock::now() + duration;
    while (!stopping_ && std::chrono::steady_clock::now() < end) {
        asio::steady_timer timer(strand_);
        // Short, since nothing breaks it off when the queue ends.
        timer.expires_at(std::min(end, std::chrono::steady_clock::now() + std::chrono::milliseconds(250)));
        co_await timer.async_wait(kAsTuple);
    }
}

asio::awaitable<void> CDeliveryQueue::WaitForSignal() {
    co_await signal_.async_wait(kAsTuple);
}

void CDeliveryQueue::Signal() {
    signal_.cancel();
}

void CDeliveryQueue::NoteSuccess() {
    pause_.Reset();
    const std::lock_guard lock(mutex_);
    if (!status_.problem.empty()) {
        spdlog::info("{}: results get through again", options_.name);
    }
    status_.problem.clear();
    ++status_.delivered;
    status_.lastDelivered = NowMilliseconds();
}

void CDeliveryQueue::NoteProblem(const std::string& problem) {
    const std::lock_guard lock(mutex_);
    ++status_.failed;
    if (status_.problem.empty()) {
        status_.since = NowMilliseconds();
    }
    status_.problem = problem;
}

DeliveryStatus CDeliveryQueue::Status() const {
    const std::lock_guard lock(mutex_);
    return status_;
}

}  // namespace ZELPC
