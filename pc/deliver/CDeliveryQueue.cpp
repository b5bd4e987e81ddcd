#include "deliver/CDeliveryQueue.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <utility>

#include "deliver/Acknowledgement.h"
#include "deliver/Standard.h"

namespace ZELPC {

namespace {

constexpr int kBatch = 32;                   // messages of one analyzer before the next one's turn
constexpr std::size_t kMostUnmarked = 4096;  // accepted messages that the store does not know of yet
constexpr auto kGrace = std::chrono::seconds(5);

}  // namespace

CDeliveryQueue::CDeliveryQueue(const asio::any_io_executor& executor, CStore& store, const DestinationOptions& options,
                               const Factory& factory)
    : executor_(executor),
      strand_(asio::make_strand(executor)),
      store_(store),
      reader_(store.Path()),
      options_(options),
      signal_(strand_, asio::steady_timer::time_point::max()),
      pause_(options.firstPause, options.longestPause) {
    status_.name = options.name;
    for (int count = 0; count < options.connections; ++count) {
        destinations_.push_back(factory(strand_));
    }
}

void CDeliveryQueue::Start() {
    working_ = destinations_.size();
    for (const auto& destination : destinations_) {
        asio::co_spawn(
            strand_, [self = shared_from_this(), &destination] { return self->Work(*destination); }, asio::detached);
    }
    WakeAll();
}

void CDeliveryQueue::Wake(const std::string& serial) {
    asio::post(strand_, [self = shared_from_this(), serial] { self->Ready(serial); });
}

void CDeliveryQueue::WakeAll() {
    asio::post(strand_, [self = shared_from_this()] {
        try {
            for (const std::string& serial : self->reader_.WaitingSerials(self->options_.name)) {
                self->Ready(serial);
                self->lanes_.at(serial).rewind = true;
            }
        } catch (const std::exception& error) {
            self->NoteProblem(fmt::format("the store cannot be read: {}", error.what()));
        }
    });
}

/// As a coroutine of the strand: one that waits goes on where it was begun.
asio::awaitable<void> CDeliveryQueue::Stop() {
    co_await asio::co_spawn(strand_, StopInTurn(), asio::use_awaitable);
}

asio::awaitable<void> CDeliveryQueue::StopInTurn() {
    stopping_ = true;
    Signal();
    const auto end = std::chrono::steady_clock::now() + kGrace;
    bool cancelled = false;
    while (working_ > 0 || unmarked_ > 0) {
        if (!cancelled && std::chrono::steady_clock::now() >= end) {
            cancelled = true;
            for (const auto& destination : destinations_) {
                destination->Cancel();
            }
        }
        // What the store cannot take any more is sent again after the next start.
        if (std::chrono::steady_clock::now() >= end + kGrace) {
            break;
        }
        asio::steady_timer timer(strand_, std::chrono::milliseconds(20));
        co_await timer.async_wait(asio::use_awaitable);
    }
}

/// One worker: takes one analyzer's turn after the other.
asio::awaitable<void> CDeliveryQueue::Work(CDestination& destination) {
    while (!stopping_) {
        const auto now = std::chrono::steady_clock::now();
        if (notBefore_ > now) {
            co_await Sleep(std::chrono::duration_cast<std::chrono::milliseconds>(notBefore_ - now) +
                           std::chrono::milliseconds(1));
        } else if (ready_.empty() || unmarked_ > kMostUnmarked) {
            co_await WaitForSignal();
        } else {
            const std::string serial = std::move(ready_.front());
            ready_.pop_front();
            co_await ServeLane(destination, serial);
            // A destination that answers at once leaves nobody else a turn.
            co_await asio::post(strand_, asio::use_awaitable);
        }
    }
    --working_;
}

asio::awaitable<void> CDeliveryQueue::ServeLane(CDestination& destination, const std::string& serial) {
    Lane& lane = lanes_.at(serial);
    const bool complete = lane.ahead != nullptr && lane.ahead->made && lane.ahead->more;
    if (std::exchange(lane.again, false) && !complete) {
        lane.ahead = nullptr;  // read before the last result came
    }
    Next next = Next::kPause;
    try {
        next = co_await ServeBatch(destination, serial, lane);
    } catch (const std::exception& error) {
        NoteProblem(fmt::format("the store cannot be read: {}", error.what()));
    }
    if (next != Next::kLater || !ready_.empty()) {
        lane.ahead = nullptr;
    }
    switch (next) {
        case Next::kGoOn:
        case Next::kLater:
            ready_.push_back(serial);
            Signal();
            break;
        case Next::kLeave:
            Leave(serial, lane);
            break;
        case Next::kPause:
            ReadyAfterPause(serial, lane);
            break;
    }
}

/// A few messages of one analyzer. kLeave: nothing is left that could be sent.
asio::awaitable<CDeliveryQueue::Next> CDeliveryQueue::ServeBatch(CDestination& destination, const std::string& serial,
                                                                 Lane& lane) {
    if (options_.stopOnReject && reader_.IsHeld(options_.name, serial)) {
        co_return Next::kLeave;
    }
    const std::shared_ptr<Batch> batch = co_await NextBatch(serial, lane);
    for (Prepared& prepared : batch->deliveries) {
        if (stopping_) {
            co_return Next::kLeave;
        }
        if (lane.rewind) {
            co_return Next::kLater;
        }
        if (lane.marked.contains(prepared.delivery.id)) {
            lane.sent = prepared.delivery.id;
            continue;
        }
        const Next next = co_await ServeOne(destination, serial, lane, prepared);
        if (next != Next::kGoOn) {
            co_return next;
        }
    }
    co_return batch->deliveries.empty() ? Next::kLeave : Next::kLater;
}

/// What comes next, and begins with what comes after that, of this analyzer or of the one whose turn is next: reading
/// and building take longer than a quick receiver does.
asio::awaitable<std::shared_ptr<CDeliveryQueue::Batch>> CDeliveryQueue::NextBatch(const std::string& serial,
                                                                                  Lane& lane) {
    Rewind(lane);
    std::shared_ptr<Batch> batch = std::exchange(lane.ahead, nullptr);
    if (batch == nullptr || batch->after != lane.sent) {
        batch = std::make_shared<Batch>(strand_, lane.sent);
        Make(*batch, serial);
    }
    while (!batch->made) {
        co_await batch->done.async_wait(asio::as_tuple(asio::use_awaitable));
    }
    if (batch->failure != nullptr) {
        std::rethrow_exception(batch->failure);
    }
    if (!ready_.empty()) {
        Lane& next = lanes_.at(ready_.front());
        Rewind(next);
        if (next.ahead == nullptr) {
            next.ahead = Ahead(ready_.front(), next.sent);
        }
    } else if (batch->more) {
        lane.ahead = Ahead(serial, batch->deliveries.back().delivery.id);
    }
    co_return batch;
}

/// What was read before something else waits again is of no use.
void CDeliveryQueue::Rewind(Lane& lane) {
    if (std::exchange(lane.rewind, false)) {
        lane.sent = 0;
        lane.ahead = nullptr;
    }
}

std::shared_ptr<CDeliveryQueue::Batch> CDeliveryQueue::Ahead(const std::string& serial, std::int64_t after) {
    auto batch = std::make_shared<Batch>(strand_, after);
    asio::post(executor_, [self = shared_from_this(), batch, serial] {
        Batch made(self->strand_, batch->after);
        self->Make(made, serial);
        asio::post(self->strand_, [batch, deliveries = std::move(made.deliveries), more = made.more,
                                   failure = made.failure]() mutable {
            batch->deliveries = std::move(deliveries);
            batch->more = more;
            batch->failure = failure;
            batch->made = true;
            batch->done.cancel();
        });
    });
    return batch;
}

void CDeliveryQueue::Make(Batch& batch, const std::string& serial) {
    try {
        for (Delivery& delivery : reader_.Waiting(options_.name, serial, kBatch, batch.after)) {
            Build(batch.deliveries.emplace_back(Prepared{std::move(delivery), {}, {}}));
        }
        batch.more = batch.deliveries.size() == kBatch;
    } catch (const std::exception&) {
        batch.failure = std::current_exception();
    }
    batch.made = true;
}

asio::awaitable<CDeliveryQueue::Next> CDeliveryQueue::ServeOne(CDestination& destination, const std::string& serial,
                                                               Lane& lane, Prepared& prepared) {
    Delivery& delivery = prepared.delivery;
    if (!prepared.error.empty()) {
        co_return co_await Hold(delivery, prepared.error);
    }
    const DeliveryOutcome outcome = co_await destination.Deliver(prepared.message);
    if (outcome.verdict != Verdict::kAccepted) {
        co_return co_await NotAccepted(serial, delivery, outcome);
    }
    NoteSuccess();
    lane.pause.Reset();
    lane.sent = delivery.id;
    NoteAccepted(serial, delivery.id);
    co_return Next::kGoOn;
}

void CDeliveryQueue::Build(Prepared& prepared) const {
    Delivery& delivery = prepared.delivery;
    OutgoingMessage& message = prepared.message;
    message.serial = delivery.serial;
    message.result = delivery.result;
    message.received = delivery.received;
    if (options_.standard) {
        message.uniqueControlId = true;
        message.controlId = fmt::format("{}-{}", store_.Id(), delivery.result);
        StandardText standard = MakeStandard(delivery.text, message.controlId, options_);
        message.text = std::move(standard.text);
        delivery.text = {};
        prepared.error = std::move(standard.error);
    } else {
        message.text = std::move(delivery.text);
        message.controlId = ControlIdOf(message.text);
        if (options_.type == DestinationType::kMllp &&
            (message.text.find('\x0B') != std::string::npos || message.text.find('\x1C') != std::string::npos)) {
            prepared.error = "the result has a byte that begins or ends a message";
        }
    }
}

asio::awaitable<CDeliveryQueue::Next> CDeliveryQueue::NotAccepted(const std::string& serial, Delivery& delivery,
                                                                  const DeliveryOutcome& outcome) {
    const bool answered = outcome.verdict == Verdict::kTryAgain || outcome.verdict == Verdict::kRejected;
    spdlog::warn("{}: result {} of {} was not delivered: {}", options_.name, delivery.result, serial, outcome.reason);
    if (answered) {
        // Whoever refuses is there: what kept results from getting through is over.
        const std::lock_guard lock(mutex_);
        pause_.Reset();
        status_.problem.clear();
        ++status_.failed;
    } else {
        NoteProblem(outcome.reason);
        notBefore_ = std::chrono::steady_clock::now() + pause_.Next();
    }
    if (outcome.verdict == Verdict::kUnreachable) {
        co_return Next::kLater;  // because of the destination, not of this message
    }
    ++delivery.attempts;
    const bool tooOften = options_.maxAttempts > 0 && delivery.attempts >= options_.maxAttempts;
    if (outcome.verdict == Verdict::kRejected || tooOften) {
        co_return co_await Hold(delivery, outcome.reason);
    }
    const DeliveryMark mark{delivery.id, DeliveryState::kWaiting, delivery.attempts, outcome.reason};
    co_await MarkSurely(mark);
    co_return Next::kPause;
}

asio::awaitable<CDeliveryQueue::Next> CDeliveryQueue::Hold(Delivery& delivery, const std::string& reason) {
    spdlog::error("{}: result {} of {} is held: {}", options_.name, delivery.result, delivery.serial, reason);
    const DeliveryMark mark{delivery.id, DeliveryState::kHeld, delivery.attempts, reason};
    co_await MarkSurely(mark);
    const std::lock_guard lock(mutex_);
    ++status_.held;
    co_return options_.stopOnReject ? Next::kLeave : Next::kGoOn;
}

}  // namespace ZELPC
