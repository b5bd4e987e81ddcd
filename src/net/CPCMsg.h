#pragma once

#include <netinet/in.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "platform/Log.h"
#include "wire/PCCommand.h"
#include "wire/PCPacket.h"

/// One packet of the PC protocol, laid out as wire/PCPacket.h says.
///
/// A message is either filled from the network (raw header first, then the payload buffer of the announced size) or
/// built with MakePacket. It owns its buffers; a copy has buffers of its own.
class CPCMsg {
public:
    static constexpr std::size_t kHeaderSize = Wire::kPCHeaderSize;
    static constexpr std::size_t kMaxPacketSize = Wire::kMaxPCPacketSize;

    CPCMsg();

    /// Builds a packet for sending, with a checksum of all bytes at its end if wanted. Empty, after an error line, when
    /// the packet would be longer than kMaxPacketSize.
    [[nodiscard]] std::span<const std::uint8_t> MakePacket(PCCommand command, std::uint8_t tag, std::uint8_t subTag,
                                                           std::span<const std::uint8_t> payload,
                                                           bool withChecksum = false);

    /// Assembles header and payload into the send buffer.
    void SetSequencePacket();

    /// The payload buffer, of the size that the header announces; empty when it announces none.
    std::span<std::uint8_t> GetBufferData();

    /// What the header announces for the whole packet; a header alone when the command is 0.
    std::size_t GetAnnouncedSize() const;

    /// What the header announces; 0 when the command is 0 or the announced total is shorter than a header.
    std::size_t GetPayloadLength() const;

    /// Where a receiver puts the header.
    std::span<std::uint8_t, kHeaderSize> GetRawHeader() { return rawHeader_; }

    PCCommand GetCommand() const;
    std::uint8_t GetTag() const { return rawHeader_[2]; }
    std::uint8_t GetSubTag() const { return rawHeader_[3]; }

    /// Bit 0 of the length. The PC sets it on every packet of an update image but the last.
    bool GetFlag() const { return (rawHeader_[6] & 1) != 0; }

    std::span<const std::uint8_t> GetPayload() const { return payload_; }
    std::span<const std::uint8_t> GetSendPacket() const { return sendBuffer_; }

    /// The datagram's sender, and where a reply goes.
    sockaddr_in& GetPeerAddress() { return peerAddress_; }
    const sockaddr_in& GetPeerAddress() const { return peerAddress_; }

    /// Writes the packet to the log as it is on the wire.
    void WritePacketLog();

private:
    QENFx::Log::FileLog* log_;
    sockaddr_in peerAddress_{};
    std::array<std::uint8_t, kHeaderSize> rawHeader_{};
    std::vector<std::uint8_t> payload_;
    std::vector<std::uint8_t> sendBuffer_;
};
