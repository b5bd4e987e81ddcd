#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "wire/PCCommand.h"

/// The packet of the PC protocol, big-endian:
///
///     0  command   2 bytes
///     2  tag       chosen by the PC; a response copies the tag of its request
///     3  sub-tag
///     4  version   1 in packets from the device, ignored on receipt
///     5  length    2 bytes: total length of the packet << 1, bit 0 a flag
///     7  payload, and in one packet a 4-byte checksum at its end
namespace Wire {

inline constexpr std::size_t kPCHeaderSize = 7;
inline constexpr std::size_t kMaxPCPacketSize = 0x7FFF;  ///< what the 15-bit length can say
inline constexpr std::size_t kPCChecksumSize = 4;

struct PCHeader {
    PCCommand command{};
    std::uint8_t tag = 0;
    std::uint8_t subTag = 0;
    std::uint8_t version = 0;
    bool flag = false;        ///< the PC sets it on every packet of an update image but the last
    std::size_t total = 0;    ///< the length of the packet as the header says it, which may be below a header's
    std::size_t payload = 0;  ///< bytes that follow the header; none when the command is 0 or `total` below a header
};

[[nodiscard]] PCHeader ParsePCHeader(std::span<const std::uint8_t, kPCHeaderSize> bytes);

/// What a packet is made of besides its payload.
struct PCPacketKind {
    PCCommand command{};
    std::uint8_t tag = 0;
    std::uint8_t subTag = 0;
    bool flag = false;
    bool checksum = false;  ///< append the sum of all bytes
};

/// The length of the packet of such a payload, which is to be no longer than kMaxPCPacketSize.
[[nodiscard]] constexpr std::size_t PCPacketSize(std::size_t payload, bool checksum) {
    return kPCHeaderSize + payload + (checksum ? kPCChecksumSize : 0);
}

/// Replaces `packet` by a packet with this payload, which must not be part of it. The caller has looked at its size.
void BuildPCPacket(std::vector<std::uint8_t>& packet, const PCPacketKind& kind, std::span<const std::uint8_t> payload);

/// The sum of all bytes, modulo 2^32: the checksum.
[[nodiscard]] std::uint32_t ByteSum(std::span<const std::uint8_t> data);

}  // namespace Wire
