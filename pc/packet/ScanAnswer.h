#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace ZELPC {

/// What an analyzer says about itself when it is asked who is there. Texts hold no control characters.
struct ScanAnswer {
    std::string serial;
    std::string model;            ///< begins with "N62V" on a Veterinary analyzer
    std::uint32_t address = 0;    ///< the analyzer's own, host byte order
    std::uint16_t tcpPort = 0;    ///< where it takes connections
    bool busy = false;            ///< a PC is connected, or it analyzes or updates
    std::uint32_t pcAddress = 0;  ///< of the registered PC, connected or not; 0 when there is none
    std::string pcName;           ///< of the registered PC

    bool IsVeterinary() const { return model.starts_with("N62V"); }
    bool operator==(const ScanAnswer&) const = default;
};

/// Reads a whole datagram. None for anything but a scan answer with the right length and checksum.
[[nodiscard]] std::optional<ScanAnswer> ParseScanAnswer(std::span<const std::uint8_t> datagram);

/// An address of the protocol, host byte order, as dotted text.
[[nodiscard]] std::string DottedAddress(std::uint32_t address);

/// A text of the protocol: up to the first NUL of its field, control characters as "?".
[[nodiscard]] std::string ProtocolText(std::span<const std::uint8_t> field);

}  // namespace ZELPC
