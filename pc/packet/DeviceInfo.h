#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace ZELPC {

/// Who is registered with an analyzer.
struct OtherPC {
    std::uint32_t address = 0;  ///< host byte order
    std::string name;

    bool operator==(const OtherPC&) const = default;
};

enum class Activity : std::uint8_t { kAnalyzing = 1, kUpdating = 3, kOther = 4 };

/// The items of a device information response; what was not asked for is absent. Texts hold no control characters.
struct DeviceInfo {
    std::optional<std::uint8_t> activity;  ///< an Activity, or what the analyzer said instead
    std::optional<std::uint8_t> peerID;
    std::optional<std::uint16_t> tcpPort;
    std::optional<std::uint32_t> address;  ///< the analyzer's own, host byte order
    std::optional<std::string> serial;
    std::optional<std::string> sysVersion;
    std::optional<std::string> appVersion;
    std::optional<std::string> dspVersion;
    std::optional<std::string> xmlVersion;
    std::optional<bool> registered;     ///< the asking PC is the registered one
    std::optional<OtherPC> registrant;  ///< the registered PC when it is not the asking one; address 0: there is none

    bool operator==(const DeviceInfo&) const = default;
};

/// An activity in words for people, and as a word for programs.
[[nodiscard]] std::string ActivityText(std::uint8_t activity);
[[nodiscard]] std::string ActivityWord(std::uint8_t activity);

/// Reads the payload of a response. None when an item is cut short, something is left over, or an item is marked of
/// which nobody knows the length.
[[nodiscard]] std::optional<DeviceInfo> ParseDeviceInfo(std::span<const std::uint8_t> payload);

}  // namespace ZELPC
