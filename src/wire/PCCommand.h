#pragma once

#include <cstdint>

/// The command codes of the PC protocol. Every other code is ignored without reply.
enum class PCCommand : std::uint16_t {
    kScanDevice = 0x0A01,
    kScanDeviceResponse = 0x0A02,
    kRegisterDevice = 0x0A03,
    kRegisterDeviceResponse = 0x0A04,
    kUnregisterDevice = 0x0A05,
    kUnregisterDeviceResponse = 0x0A06,
    kDeviceInfoChange = 0x0A13,
    kDeviceInfoChangeAck = 0x0A14,
    kUpdateStart = 0x0A19,
    kUpdateAccept = 0x0A1A,
    kImageRequest = 0x0A1B,
    kImageData = 0x0A1C,
    kImageReceived = 0x0A1D,
    kGetInfo = 0x0A1E,  ///< from the PC: device information; from the device: the PC's update information
    kInfo = 0x0A1F,     ///< from the device: device information; from the PC: its update information
    kErrorNotice = 0x0AFF,
    kResult = 0x7B01,  ///< from the device: a result; from the PC: its acknowledgement
};

/// Codes of an error notice from the PC by which it gives an update up: these and what stands between.
inline constexpr std::uint16_t kFirstCancel = 0x0013;
inline constexpr std::uint16_t kLastCancel = 0x0015;

/// Codes of an error notice to the PC.
enum class PCError : std::uint16_t {
    kWrongPassword = 0x0007,
    kBusyAnalyzing = 0x000C,
    kBusyUpdating = 0x000E,
    kUpdateImpossible = 0x0017,
};

/// Items of a device information response and of a change notice.
enum PCInfoItem : std::uint16_t {
    kItemActivity = 0x0001,
    kItemPeerID = 0x0002,
    kItemTCPPort = 0x0004,
    kItemDeviceAddress = 0x0008,
    kItemSerialNumber = 0x0010,
    kItemSYSVersion = 0x0020,
    kItemAppVersion = 0x0040,
    kItemDSPVersion = 0x0080,
    kItemXMLVersion = 0x0100,
    kItemXMLVersionAgain = 0x0200,
    kItemPCChanged = 0x0400,
    kItemReserved = 0x0800,
    kItemRegistration = 0x1000,
    kItemSerialCheck = 0x2000,
};

inline constexpr std::uint16_t kItemAnyVersion = kItemSYSVersion | kItemAppVersion | kItemDSPVersion | kItemXMLVersion;
