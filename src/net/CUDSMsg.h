#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "net/UDSMessageId.h"
#include "platform/Log.h"

/// One message of the local protocol with ZELApp, little-endian:
///
///     0    0x02
///     1    0xB2
///     2    message id   2 bytes
///     4    length n of the payload   2 bytes
///     6    payload
///     6+n  CRC-16 of the bytes 1 to 5+n   2 bytes
///     8+n  0x03
///
/// A message is either filled from the socket piece by piece or built with GetSendPacket. It owns its buffers.
class CUDSMsg {
public:
    static constexpr std::size_t kHeaderSize = 6;
    static constexpr std::size_t kTrailerSize = 3;

    CUDSMsg();

    /// Builds a message for sending; at most 65535 bytes of payload.
    [[nodiscard]] std::span<const std::uint8_t> GetSendPacket(RMUP::Net::UDSMessageId id,
                                                              std::span<const std::uint8_t> payload);

    /// Assembles header, payload and trailer into the send buffer.
    void SetSequencePacket();

    /// The payload buffer, of the size that the header announces.
    std::span<std::uint8_t> GetBufferData();

    /// Whether the received CRC is that of the received bytes. The framing bytes are not looked at.
    [[nodiscard]] bool IsValidCRC();

    std::span<std::uint8_t, kHeaderSize> GetHeader() { return header_; }
    std::span<std::uint8_t, kTrailerSize> GetTrailer() { return trailer_; }
    RMUP::Net::UDSMessageId GetMessageId() const;
    std::size_t GetPayloadLength() const;
    std::span<const std::uint8_t> GetPayload() const { return payload_; }

    /// Writes the message to the log as it is on the wire.
    void WritePacketLog();

private:
    /// Of a send buffer: the CRC over what it covers.
    std::uint16_t ComputeCRC() const;

    QENFx::Log::FileLog* log_;
    std::array<std::uint8_t, kHeaderSize> header_{};
    std::vector<std::uint8_t> payload_;
    std::array<std::uint8_t, kTrailerSize> trailer_{};
    std::vector<std::uint8_t> sendBuffer_;
};
