#pragma once

#include <memory>

#include "config/ISession.h"

namespace RMUP::Net {

/// Whom the endpoints tell what they see of the two links to the PC. Called from any thread.
class ILinkMonitor {
public:
    ILinkMonitor() = default;
    ILinkMonitor(const ILinkMonitor&) = delete;
    ILinkMonitor& operator=(const ILinkMonitor&) = delete;
    virtual ~ILinkMonitor() = default;

    /// Makes `session` the current one and counts the TCP link as up, if its PC is the registered one and there is no
    /// other whose PC is still there. Returns whether it did.
    [[nodiscard]] virtual bool ClaimLink(const std::shared_ptr<ISession>& session) = 0;

    /// Forgets `session` and counts the TCP link as down, if it is the current one.
    virtual void ReleaseLink(const ISession& session) = 0;

    virtual void SetUDPConnection(bool connected) = 0;
};

}  // namespace RMUP::Net
