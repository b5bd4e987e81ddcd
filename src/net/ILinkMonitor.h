#pragma once

#include <memory>

#include "config/IPCSession.h"

/// Whom the endpoints tell what they see of the two links to the PC. Called from any thread.
class ILinkMonitor {
public:
    ILinkMonitor() = default;
    ILinkMonitor(const ILinkMonitor&) = delete;
    ILinkMonitor& operator=(const ILinkMonitor&) = delete;
    virtual ~ILinkMonitor() = default;

    /// Makes `session` the current one and counts the TCP link as up, unless there is one. Returns whether it did.
    [[nodiscard]] virtual bool ClaimLink(std::shared_ptr<IPCSession> session) = 0;

    /// Forgets `session` and counts the TCP link as down, if it is the current one.
    virtual void ReleaseLink(const IPCSession& session) = 0;

    virtual void SetUDPConnection(bool connected) = 0;
};
