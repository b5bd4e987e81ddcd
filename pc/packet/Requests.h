#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>

#include "packet/Packet.h"
#include "wire/ImageCatalogue.h"

/// The packets that a PC sends.
namespace ZELPC {

/// A packet of this kind. The payload is at most kMaxImagePiece bytes.
[[nodiscard]] Buffer MakePacket(const Wire::PCPacketKind& kind, std::span<const std::uint8_t> payload = {});

/// Asks who is there. The answers go to `address` (host byte order) and `port`.
[[nodiscard]] Buffer ScanRequest(std::uint8_t tag, std::uint32_t address, std::uint16_t port);

struct Registration {
    std::string_view password;  ///< 8 bytes of it are carried
    std::uint16_t udpPort = 0;
    std::uint32_t address = 0;  ///< host byte order
    std::string_view name;      ///< 10 bytes of it are carried
    char peerID = '1';
};

[[nodiscard]] Buffer RegisterRequest(std::uint8_t tag, const Registration& registration);

/// Asks for items (PCInfoItem).
[[nodiscard]] Buffer InfoRequest(std::uint8_t tag, char peerID, std::uint16_t items);

/// The sign of life that a registered PC sends by UDP.
[[nodiscard]] Buffer SignOfLife(std::uint8_t tag, char peerID);

/// Tells which versions this PC has of SYS, APP, DSP and XML.
[[nodiscard]] Buffer UpdateVersions(std::uint8_t tag, char peerID, const std::map<ImageId, std::string>& versions);

/// The most bytes of an update file that one packet carries.
inline constexpr std::size_t kMaxImagePiece = Wire::kMaxPCPacketSize - Wire::kPCHeaderSize;

/// An error notice; with a code from kFirstCancel to kLastCancel it gives an update up.
[[nodiscard]] Buffer ErrorNotice(std::uint8_t tag, char peerID, std::uint16_t code);

}  // namespace ZELPC
