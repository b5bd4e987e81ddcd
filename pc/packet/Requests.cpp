#include "packet/Requests.h"

#include <algorithm>
#include <array>

#include "wire/Bytes.h"
#include "wire/PCCommand.h"
#include "wire/UpdateFormat.h"

namespace ZELPC {

namespace {

constexpr std::size_t kPasswordSize = 8;
constexpr std::size_t kNameSize = 10;

std::uint8_t SubTag(char peerID) {
    return static_cast<std::uint8_t>(peerID);
}

void PutText(std::span<std::uint8_t> field, std::string_view text) {
    std::copy_n(text.begin(), std::min(text.size(), field.size()), field.begin());
}

/// A packet whose payload is one 16-bit number.
Buffer NumberPacket(PCCommand command, std::uint8_t tag, char peerID, std::uint16_t number) {
    std::array<std::uint8_t, 2> payload{};
    Bytes::PutBE16(payload, 0, number);
    return MakePacket({.command = command, .tag = tag, .subTag = SubTag(peerID)}, payload);
}

}  // namespace

Buffer MakePacket(const Wire::PCPacketKind& kind, std::span<const std::uint8_t> payload) {
    Buffer packet;
    Wire::BuildPCPacket(packet, kind, payload);
    return packet;
}

Buffer ScanRequest(std::uint8_t tag, std::uint32_t address, std::uint16_t port) {
    std::array<std::uint8_t, 10> payload{};
    Bytes::PutBE16(payload, 0, port);
    Bytes::PutBE32(payload, 2, address);
    return MakePacket({.command = PCCommand::kScanDevice, .tag = tag}, payload);
}

Buffer RegisterRequest(std::uint8_t tag, const Registration& registration) {
    std::array<std::uint8_t, 25> payload{};
    const std::span<std::uint8_t> fields(payload);
    PutText(fields.first(kPasswordSize), registration.password);
    Bytes::PutBE16(payload, 8, registration.udpPort);
    Bytes::PutBE32(payload, 10, registration.address);
    PutText(fields.subspan(14, kNameSize), registration.name);
    payload[24] = SubTag(registration.peerID);
    return MakePacket({.command = PCCommand::kRegisterDevice, .tag = tag, .subTag = SubTag(registration.peerID)},
                      payload);
}

Buffer InfoRequest(std::uint8_t tag, char peerID, std::uint16_t items) {
    return NumberPacket(PCCommand::kGetInfo, tag, peerID, items);
}

Buffer SignOfLife(std::uint8_t tag, char peerID) {
    return NumberPacket(PCCommand::kDeviceInfoChange, tag, peerID, 0);
}

Buffer UpdateVersions(std::uint8_t tag, char peerID, const std::map<ImageId, std::string>& versions) {
    std::uint16_t mask = 0;
    Buffer payload(2);
    for (const ImageId image : Wire::kImagesOfPC) {
        const auto found = versions.find(image);
        if (found != versions.end()) {
            mask |= static_cast<std::uint16_t>(Wire::RowOf(image).versionItem);
            payload.resize(payload.size() + Wire::kVersionSize);
            PutText(std::span(payload).last(Wire::kVersionSize), found->second);
        }
    }
    Bytes::PutBE16(payload, 0, mask);
    return MakePacket({.command = PCCommand::kInfo, .tag = tag, .subTag = SubTag(peerID)}, payload);
}

Buffer ErrorNotice(std::uint8_t tag, char peerID, std::uint16_t code) {
    return NumberPacket(PCCommand::kErrorNotice, tag, peerID, code);
}

}  // namespace ZELPC
