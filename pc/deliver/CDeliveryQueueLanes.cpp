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
constexpr auto kMarkPause = std::chrono::milliseconds(20);
constexpr std::size_t kMarkedTogether = 512;

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

void CDeliveryQueue::NoteAccepted(const std::string& serial, std::int64_t delivery) {
    const Lanes::iterator lane = lanes_.find(serial);
    lane->second.marked.insert(delivery);
    accepted_.push_back({lane, delivery});
    ++unmarked_;
    if (accepted_.size() >= kMarkedTogether) {
        MarkAccepted();
    } else if (!std::exchange(markingSoon_, true)) {
        asio::co_spawn(
            strand_, [self = shared_from_this()] { return self->MarkSoon(); }, asio::detached);
    }
}

/// New results, which analyzers wait for, need the disk as well: so marks come to it seldom, and many at once.
asio::awaitable<void> CDeliveryQueue::MarkSoon() {
    co_await Sleep(kMarkPause);
    markingSoon_ = false;
    MarkAccepted();
}

asio::awaitable<void> CDeliveryQueue::TellStore() {
    co_await asio::co_spawn(strand_, TellStoreInTurn(), asio::use_awaitable);
}

asio::awaitable<void> CDeliveryQueue::TellStoreInTurn() {
    MarkAccepted();
    co_return;
}

void CDeliveryQueue::MarkAccepted() {
    if (!accepted_.empty()) {
        Mark(std::exchange(accepted_, {}));
    }
}

void CDeliveryQueue::Mark(std::vector<Accepted> accepted) {
    std::vector<std::int64_t> deliveries;
    for (const Accepted& one : accepted) {
        deliveries.push_back(one.delivery);
    }
    store_.MarkDelivered(
        std::move(deliveries), [self = shared_from_this(), accepted = std::move(accepted)](const std::string* error) {
            if (error == nullptr) {
                asio::post(self->strand_, [self, accepted] { self->Marked(accepted); });
            } else {
                asio::co_spawn(
                    self->strand_, [self, accepted] { return self->MarkAgain(accepted); }, asio::detached);
            }
        });
}

void CDeliveryQueue::Marked(const std::vector<Accepted>& accepted) {
    for (const auto& [lane, delivery] : accepted) {
        lane->second.marked.erase(delivery);
        if (!lane->second.queued && lane->second.marked.empty()) {
            lanes_.erase(lane);
        }
    }
    unmarked_ -= accepted.size();
    Signal();
}

asio::awaitable<void> CDeliveryQueue::MarkAgain(std::vector<Accepted> accepted) {
    co_await Sleep(kMarkAgain);
    if (stopping_) {
        unmarked_ -= accepted.size();  // they will be delivered twice
    } else {
        Mark(std::move(accepted));
    }
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
