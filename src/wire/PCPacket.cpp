#include "wire/PCPacket.h"

#include <numeric>

#include "wire/Bytes.h"

namespace Wire {

namespace {

constexpr std::uint8_t kVersion = 1;

}  // namespace

PCHeader ParsePCHeader(std::span<const std::uint8_t, kPCHeaderSize> bytes) {
    PCHeader header;
    header.command = PCCommand{Bytes::GetBE16(bytes, 0)};
    header.tag = bytes[2];
    header.subTag = bytes[3];
    header.version = bytes[4];
    header.flag = (bytes[6] & 1) != 0;
    header.total = Bytes::GetBE16(bytes, 5) >> 1;
    header.payload = header.command == PCCommand{} || header.total < kPCHeaderSize ? 0 : header.total - kPCHeaderSize;
    return header;
}

void BuildPCPacket(std::vector<std::uint8_t>& packet, const PCPacketKind& kind, std::span<const std::uint8_t> payload) {
    const std::size_t total = PCPacketSize(payload.size(), kind.checksum);
    packet.resize(kPCHeaderSize);
    packet.reserve(total);
    Bytes::PutBE16(packet, 0, static_cast<std::uint16_t>(kind.command));
    packet[2] = kind.tag;
    packet[3] = kind.subTag;
    packet[4] = kVersion;
    Bytes::PutBE16(packet, 5, static_cast<std::uint16_t>(total << 1 | (kind.flag ? 1U : 0U)));
    packet.insert(packet.end(), payload.begin(), payload.end());
    if (kind.checksum) {
        const std::uint32_t sum = ByteSum(packet);
        packet.resize(total);
        Bytes::PutBE32(packet, total - kPCChecksumSize, sum);
    }
}

std::uint32_t ByteSum(std::span<const std::uint8_t> data) {
    return std::accumulate(data.begin(), data.end(), std::uint32_t{0});
}

}  // namespace Wire
