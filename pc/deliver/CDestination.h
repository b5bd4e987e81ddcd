#pragma once

#include <boost/asio/awaitable.hpp>
#include <cstdint>
#include <string>

namespace ZELPC {

namespace asio = boost::asio;

/// One result as a destination gets it.
struct OutgoingMessage {
    std::string text;
    std::string controlId;  ///< MSH-10 of the text
    /// Whether no other message has this control ID. The analyzer's own is "0" in all of them.
    bool uniqueControlId = false;
    std::string serial;  ///< the analyzer
    std::int64_t result = 0;
    std::int64_t received = 0;  ///< when it came, milliseconds since 1970
};

enum class Verdict {
    kAccepted,
    kTryAgain,     ///< answered, but not accepted: it may be later
    kRejected,     ///< answered that this message will never be accepted
    kNoAnswer,     ///< handed over, and nothing came back that says what became of it
    kUnreachable,  ///< not handed over
};

struct DeliveryOutcome {
    Verdict verdict = Verdict::kUnreachable;
    std::string reason;  ///< for people; empty when accepted
};

/// Where results go. A destination hands over one message at a time and says what came of it; queueing, order and
/// trying again are its queue's. All calls come from one strand.
class CDestination {
public:
    virtual ~CDestination() = default;

    /// Hands the message over and waits for the answer, within bounds of its own. The same message may come again: what
    /// it does must then be the same as before. Never throws.
    virtual asio::awaitable<DeliveryOutcome> Deliver(const OutgoingMessage& message) = 0;

    /// Breaks off what is under way, which then ends with kNoAnswer or kUnreachable.
    virtual void Cancel() = 0;
};

}  // namespace ZELPC
