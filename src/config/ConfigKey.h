#pragma once

/// The settings by their index. 11 and 13 name no setting.
enum class ConfigKey : int {
    kZELRMTCPPort = 0,
    kZELRMUDPPort = 1,
    kPCIPAddress = 2,
    kPCTCPPort = 3,
    kPCUDPPort = 4,
    kPCSWName = 5,
    kPCPeerID = 6,
    kIPChanged = 7,
    kBootPartitions = 8,
    kUpdateImages = 9,
    kUpdateURL = 10,
    kAdminPW = 12,
    kReferenceRangeDisable = 14,
};

/// The value of PCIPAddress while no PC is registered.
inline constexpr char kNoPCAddress[] = "0.0.0.0";
