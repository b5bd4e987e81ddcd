#pragma once

#include <cstdint>

/// The message ids of the local protocol. Every other id is ignored.
enum UDSMessageId : std::uint16_t {
    kUDSStarted = 0x0500,         ///< to ZELApp: the service is up
    kUDSSendResult = 0x0510,      ///< from ZELApp: send the result named in the request file
    kUDSResultSent = 0x0513,      ///< to ZELApp: the PC has the result
    kUDSResultFailed = 0x0514,    ///< to ZELApp: the PC does not have the result
    kUDSAddressChanged = 0x0520,  ///< from ZELApp
    kUDSPCConnection = 0x0530,    ///< to ZELApp: a PC is connected or not
    kUDSUpdateStart = 0x0561,     ///< from ZELApp
    kUDSUpdateStatus = 0x0562,    ///< to ZELApp: information, progress, error, completion
    kUDSUpdateRequest = 0x0563,   ///< to ZELApp: the PC asks for an update
    kUDSUpdateResponse = 0x0564,  ///< from ZELApp: whether the update asked for is possible
};
