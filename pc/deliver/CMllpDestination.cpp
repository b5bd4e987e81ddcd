#include "deliver/CMllpDestination.h"

#include <fmt/format.h>

#include "deliver/Acknowledgement.h"

namespace ZELPC {

namespace {

constexpr std::size_t kMostBytesOfAnAnswer = 256 * 1024;  // answers to other messages included
constexpr std::chrono::microseconds kAtOnce{300};

}  // namespace

CMllpDestination::CMllpDestination(asio::any_io_executor executor, const DestinationOptions& options)
    : executor_(std::move(executor)), options_(options) {}

asio::awaitable<DeliveryOutcome> CMllpDestination::Deliver(const OutgoingMessage& message) {
    // A message without a number of its own must not take an answer that came late to an earlier one.
    if (stream_ != nullptr && !message.uniqueControlId && (!decoder_.Empty() || stream_->HasInput())) {
        Disconnect();
    }
    const bool used = stream_ != nullptr;
    if (!used) {
        if (const std::string error = co_await Connect(); !error.empty()) {
            co_return DeliveryOutcome{Verdict::kUnreachable, error};
        }
    }
    Answer answer = co_await Exchange(message);
    // Receivers close a connection that was quiet for a while; that is no failure.
    if (used && answer.closedBeforeAnswer) {
        if (const std::string error = co_await Connect(); !error.empty()) {
            co_return DeliveryOutcome{Verdict::kUnreachable, error};
        }
        answer = co_await Exchange(message);
    }
    co_return answer.outcome;
}

asio::awaitable<std::string> CMllpDestination::Connect() {
    Disconnect();
    stream_ = std::make_unique<CStream>(executor_);
    const std::string error = co_await stream_->Connect(options_);
    if (!error.empty()) {
        Disconnect();
    }
    co_return error;
}

asio::awaitable<CMllpDestination::Answer> CMllpDestination::Exchange(const OutgoingMessage& message) {
    CMllpDecoder::Frame(message.text, frame_);
    received_ = 0;
    strangers_.clear();
    std::size_t sent = 0;
    if (auto answer = ExchangeAtOnce(message, sent); answer.has_value()) {
        co_return std::move(*answer);
    }
    stream_->ExpiresAfter(options_.answerTimeout);
    Answer answer;
    if (const auto error = co_await stream_->Write(std::string_view(frame_).substr(sent)); error) {
        answer.outcome = {Verdict::kNoAnswer, "the connection broke while sending: " + error.message()};
        answer.closedBeforeAnswer = error != CStream::kTimeout;
    } else {
        answer = co_await ReadAnswer(message);
    }
    if (answer.outcome.verdict == Verdict::kNoAnswer) {
        Disconnect();
    }
    co_return answer;
}

/// For a receiver that answers at once, as one in the same building does: waiting for it here takes a fraction of the
/// time of being woken up. A single one, so that nobody else's turn is held up.
std::optional<CMllpDestination::Answer> CMllpDestination::ExchangeAtOnce(const OutgoingMessage& message,
                                                                         std::size_t& sent) {
    if (options_.connections > 1) {
        return std::nullopt;
    }
    if (answersAtOnce_) {
        stream_->LeaveReactor();
    }
    sent = stream_->WriteAtOnce(frame_);
    std::optional<Answer> answer;
    if (sent == frame_.size()) {
        const std::size_t size = stream_->ReadAtOnce(bytes_, answersAtOnce_ ? kAtOnce : kAtOnce / 3);
        answersAtOnce_ = size > 0;
        answer = size > 0 ? TakeBytes(message, {bytes_.data(), size}) : std::nullopt;
    }
    if (answer.has_value() && answer->outcome.verdict == Verdict::kNoAnswer) {
        Disconnect();
    }
    return answer;
}

asio::awaitable<CMllpDestination::Answer> CMllpDestination::ReadAnswer(const OutgoingMessage& message) {
    for (;;) {
        const auto [error, size] = co_await stream_->ReadSome(bytes_);
        if (error == CStream::kTimeout) {
            co_return Answer{
                {Verdict::kNoAnswer,
                 fmt::format("no answer within {} s{}",
                             std::chrono::duration_cast<std::chrono::seconds>(options_.answerTimeout).count(),
                             strangers_)},
                false};
        }
        if (error) {
            co_return Answer{{Verdict::kNoAnswer, "the connection was closed without an answer" + strangers_},
                             received_ == 0};
        }
        if (auto answer = TakeBytes(message, {bytes_.data(), size}); answer.has_value()) {
            co_return std::move(*answer);
        }
    }
}

/// What has come after the message was sent; nothing when more has to come.
std::optional<CMllpDestination::Answer> CMllpDestination::TakeBytes(const OutgoingMessage& message,
                                                                    std::string_view bytes) {
    received_ += bytes.size();
    if (!decoder_.Put(bytes) || received_ > kMostBytesOfAnAnswer) {
        return Answer{{Verdict::kNoAnswer, "the answer is too long"}, false};
    }
    if (auto outcome = FindAnswer(message); outcome.has_value()) {
        return Answer{std::move(*outcome), false};
    }
    return std::nullopt;
}

std::optional<DeliveryOutcome> CMllpDestination::FindAnswer(const OutgoingMessage& message) {
    while (const auto text = decoder_.Next()) {
        const auto answer = ReadAcknowledgement(*text);
        if (!answer.has_value()) {
            return DeliveryOutcome{Verdict::kNoAnswer, "the answer is not an HL7 acknowledgement"};
        }
        if (answer->controlId == message.controlId) {
            if (answer->code == "CA" && !message.uniqueControlId) {
                // Another answer may follow, and could be taken for the next message's.
                Disconnect();
            }
            return answer->Outcome();
        }
        strangers_ = fmt::format("; it answered for message \"{}\" instead of \"{}\"", answer->controlId.substr(0, 40),
                                 message.controlId);
    }
    return std::nullopt;
}

void CMllpDestination::Disconnect() {
    stream_.reset();
    decoder_.Clear();
}

void CMllpDestination::Cancel() {
    if (stream_ != nullptr) {
        stream_->Cancel();
    }
}

}  // namespace ZELPC
