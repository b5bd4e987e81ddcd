#pragma once

#include <chrono>
#include <cstddef>

namespace RMUP::Process {

/// What a peer must send in what time: so many bytes in each stretch of waiting for it, or it counts as lost. Only the
/// time that is spent waiting counts: a peer is not to blame for what the receiver does meanwhile.
class CReceiveLimit {
public:
    using Duration = std::chrono::steady_clock::duration;

    constexpr CReceiveLimit(Duration time, std::size_t bytes) : time_(time), bytes_(bytes) {}

    /// How long may still be waited; nothing or less when the peer is lost.
    Duration Left() const { return time_ - waited_; }

    /// Counts a wait and what it brought.
    void Count(Duration waited, std::size_t bytes) {
        waited_ += waited;
        received_ += bytes;
        if (received_ >= bytes_) {
            waited_ = Duration::zero();
            received_ = 0;
        }
    }

private:
    Duration time_;
    std::size_t bytes_;
    Duration waited_ = Duration::zero();
    std::size_t received_ = 0;
};

}  // namespace RMUP::Process
