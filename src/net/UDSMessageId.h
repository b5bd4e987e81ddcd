#pragma once

#include <cstdint>

namespace RMUP::Net {

/// The message ids of the local protocol. Every other id is ignored.
enum class UDSMessageId : std::uint16_t {
    kStarted = 0x0500,         ///< to ZELApp: the service is up
    kSendResult = 0x0510,      ///< from ZELApp: send the result named in the request file
    kResultSent = 0x0513,      ///< to ZELApp: the PC has the result
    kResultFailed = 0x0514,    ///< to ZELApp: the PC does not have the result
    kAddressChanged = 0x0520,  ///< from ZELApp
    kPCConnection = 0x0530,    ///< to ZELApp: a PC is connected or not
    kUpdateStart = 0x0561,     ///< from ZELApp
    kUpdateStatus = 0x0562,    ///< to ZELApp: information, progress, error, completion
    kUpdateRequest = 0x0563,   ///< to ZELApp: the PC asks for an update
    kUpdateResponse = 0x0564,  ///< from ZELApp: whether the update asked for is possible
};

}  // namespace RMUP::Net
