#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// What the store holds, as plain values. Times are milliseconds since 1970.
namespace ZELPC {

/// A result as an analyzer sent it.
struct NewResult {
    std::string serial;  ///< the analyzer
    std::string text;
    std::int64_t received = 0;

    /// Roughly the bytes that it takes.
    std::size_t Memory() const { return text.size() + 512; }
};

enum class AppendStatus {
    kStored,
    kAside,   ///< nothing that could be a result; kept for people, not to be acknowledged
    kFailed,  ///< not stored, not to be acknowledged
};

struct AppendOutcome {
    AppendStatus status = AppendStatus::kFailed;
    std::int64_t id = 0;  ///< of the result, when it is stored
    std::string reason;   ///< why it was put aside or not stored
};

/// What a result is found by. Read from its text once, when it is stored.
struct ResultFacts {
    std::string kind;  ///< "P" patient, "Q" control, empty when the text does not say
    std::string patient;
    std::string panel;
    std::string measured;  ///< YYYYMMDD[hhmmss]
};

struct StoredResult {
    std::int64_t id = 0;
    std::string serial;
    std::int64_t received = 0;
    ResultFacts facts;
    std::int64_t repeats = 0;  ///< how often it came again
    std::string text;          ///< empty in lists
};

enum class DeliveryState : int { kWaiting = 0, kHeld = 1, kDelivered = 2, kDropped = 3 };

/// One result on its way to one destination.
struct Delivery {
    std::int64_t id = 0;
    std::int64_t result = 0;
    std::string serial;
    DeliveryState state = DeliveryState::kWaiting;
    std::int64_t attempts = 0;  ///< answers that were not an acceptance
    std::string reason;         ///< of the last of them
    std::int64_t queued = 0;
    std::int64_t changed = 0;
    std::string destination;  ///< in lists
    std::string patient;      ///< in lists
    std::string text;         ///< of the result, where it is wanted for sending
    std::int64_t received = 0;
};

/// What came of an attempt to deliver.
struct DeliveryMark {
    std::int64_t id = 0;
    DeliveryState state = DeliveryState::kWaiting;
    std::int64_t attempts = 0;
    std::string reason;
};

/// How a destination's queue stands.
struct QueueCount {
    std::string destination;
    std::int64_t waiting = 0;
    std::int64_t held = 0;
    std::int64_t oldest = 0;  ///< when the first waiting one was queued; 0: none waits
};

/// Which results; what is empty or 0 does not restrict.
struct ResultFilter {
    std::string serial;
    std::string patient;
    std::int64_t since = 0;
    std::int64_t until = 0;
    std::int64_t before = 0;  ///< results with a smaller id, for the next page
    std::int64_t after = 0;   ///< results with a greater id: what is new since
    int limit = 50;
};

/// What was kept although it cannot be a result.
struct AsideText {
    std::int64_t id = 0;
    std::string serial;
    std::int64_t received = 0;  ///< the last time
    std::int64_t times = 0;
    std::string reason;
    std::string text;
};

}  // namespace ZELPC
