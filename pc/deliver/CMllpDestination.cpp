#include "deliver/CMllpDestination.h"

#include <fmt/format.h>

#include <array>

#include "deliver/Acknowledgement.h"

namespace ZELPC {

namespace {

constexpr std::size_t kMostBytesOfAnAnswer = 256 * 1024;  // answers to other messages included

}  // namespace

CMllpDestination::CMllpDestination(asio::any_io_executor executor, const DestinationOptions& options)
    : executor_(std::move(executor)), options_(options) {}

asio::awaitable<DeliveryOutcome> CMllpDestination::Deliver(const OutgoingMessage& message) {
    // A message without a number of its own must not take an answer that came late to an earlier one.
    if (stream_ != nullptr && (!decoder_.Empty() || stream_->HasInput())) {
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
    stream_->ExpiresAfter(options_.answerTimeout);
    const std::string frame = CMllpDecoder::Frame(message.text);
    Answer answer;
    if (const auto error = co_await stream_->Write(frame); error) {
        answer.outcome = {Verdict::kNoAnswer, "the connection broke while sending: " + error.message()};
        answer.closedBeforeAnswer = error != CStream::kTimeout;
    } else {
        answer = co_await ReadAnswer(message);
    }
    const Verdict verdict = answer.outcome.verdict;
    if (verdict == Verdict::kNoAnswer) {
        Disconnect();
    }
    co_return answer;
}

asio::awaitable<CMllpDestination::Answer> CMllpDestination::ReadAnswer(const OutgoingMessage& message) {
    std::array<char, 4096> bytes;
    std::size_t total = 0;
    strangers_.clear();
    for (;;) {
        const auto [error, size] = co_await stream_->ReadSome(bytes);
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
                             total == 0};
        }
        total += size;
        if (!decoder_.Put({bytes.data(), size}) || total > kMostBytesOfAnAnswer) {
            co_return Answer{{Verdict::kNoAnswer, "the answer is too long"}, false};
        }
        if (const auto outcome = FindAnswer(message); outcome.has_value()) {
            co_return Answer{*outcome, false};
        }
    }
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
