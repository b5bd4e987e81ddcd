#pragma once

#include <cstdint>
#include <span>

#include "packet/Packet.h"

namespace ZELPC {

/// Cuts what comes over a connection from an analyzer into packets.
///
/// An analyzer whose send was cut short repeats the whole packet, so that the beginning of a result may stand before
/// the result: such a beginning is dropped. What cannot come from an analyzer (another version, a length below the
/// header's, no command) breaks the stream for good: there is no telling where the next packet begins.
///
/// Memory: the packet that is being read, at most Wire::kMaxPCPacketSize bytes, and that only while its bytes come.
class CPacketReader {
public:
    enum class State {
        kMore,    ///< nothing whole yet
        kPacket,  ///< a packet was taken out
        kBroken,  ///< not the protocol; nothing more is read
    };

    /// Where the next bytes are to be put; never empty. Valid until the next call.
    [[nodiscard]] std::span<std::uint8_t> Space();

    /// So many bytes were put there. Replaces `packet` when one is whole now; at most one can be.
    [[nodiscard]] State Take(std::size_t count, Packet& packet);

    /// Whether a packet has begun that is not whole.
    bool IsInside() const { return filled_ > 0; }

private:
    State TakeHeader();
    [[nodiscard]] std::size_t BeginsAgainAt() const;
    [[nodiscard]] bool IsSameHeader(std::size_t offset) const;

    Buffer buffer_;
    std::size_t filled_ = 0;
    Wire::PCHeader header_;
    int repeats_ = 0;
    bool broken_ = false;
};

}  // namespace ZELPC
