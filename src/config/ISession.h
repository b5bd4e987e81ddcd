#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "wire/PCCommand.h"

namespace RMUP::Net {

/// The connection of one PC, as the rest of the service sees it. Shared by the threads that send to the PC; every
/// operation may be called from any of them, also after the connection has ended.
class ISession {
public:
    ISession() = default;
    ISession(const ISession&) = delete;
    ISession& operator=(const ISession&) = delete;
    virtual ~ISession() = default;

    /// Sends a packet; for a result packet it also waits for the PC's acknowledgement. Returns the bytes sent, or -1
    /// when sending failed or the acknowledgement did not come.
    [[nodiscard]] virtual int SendMessage(std::span<const std::uint8_t> packet) = 0;

    /// Sends the error notice with a code. Returns 0 on success.
    virtual int SendErrorMessage(std::uint8_t subTag, std::uint8_t tag, PCError error) = 0;

    /// The peer's dotted IPv4 address, or the empty text when the connection is gone.
    virtual std::string GetClientIPAddr() const = 0;

    /// The peer's TCP port, or 0 when the connection is gone.
    virtual std::uint16_t GetClientPort() const = 0;

    /// Whether the PC has closed its side, so that nothing more will come. Does not wait.
    virtual bool HasPeerClosed() const = 0;

    /// Asks the session to end; it closes its connection at its next look at the stop flag.
    virtual void StopSession() = 0;

    /// Set while the PC's answer about its update images is awaited, cleared when it offers nothing newer.
    virtual void SetUpdateFlag(bool wanted) = 0;
    virtual bool GetUpdateFlag() const = 0;
};

}  // namespace RMUP::Net
