#include "packet/ScanAnswer.h"

#include <algorithm>

#include "wire/Bytes.h"
#include "wire/PCCommand.h"
#include "wire/PCPacket.h"
#include "wire/UpdateFormat.h"

namespace ZELPC {

namespace {

constexpr std::size_t kPayloadSize = 68;
constexpr std::size_t kAnswerSize = Wire::PCPacketSize(kPayloadSize, true);

}  // namespace

std::optional<ScanAnswer> ParseScanAnswer(std::span<const std::uint8_t> datagram) {
    if (datagram.size() != kAnswerSize) {
        return std::nullopt;
    }
    const Wire::PCHeader header = Wire::ParsePCHeader(datagram.first<Wire::kPCHeaderSize>());
    constexpr std::size_t kSummed = kAnswerSize - Wire::kPCChecksumSize;
    if (header.command != PCCommand::kScanDeviceResponse || header.total != kAnswerSize ||
        Bytes::GetBE32(datagram, kSummed) != Wire::ByteSum(datagram.first(kSummed))) {
        return std::nullopt;
    }
    const auto payload = datagram.subspan(Wire::kPCHeaderSize, kPayloadSize);
    ScanAnswer answer;
    answer.serial = ProtocolText(payload.first(15));
    answer.busy = (payload[15] & 1) != 0;
    answer.tcpPort = Bytes::GetBE16(payload, 16);
    answer.address = Bytes::GetBE32(payload, 18);
    answer.pcAddress = Bytes::GetBE32(payload, 32);
    answer.pcName = ProtocolText(payload.subspan(36, 10));
    answer.model = ProtocolText(payload.subspan(60, 8));
    return answer;
}

std::string DottedAddress(std::uint32_t address) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        text += std::to_string((address >> shift) & 0xFF);
        text += shift == 0 ? "" : ".";
    }
    return text;
}

std::string ProtocolText(std::span<const std::uint8_t> field) {
    std::string text = Wire::FieldText(field);
    std::ranges::replace_if(
        text, [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7F'; }, '?');
    return text;
}

}  // namespace ZELPC
