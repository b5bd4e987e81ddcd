#pragma once

/// Whom the endpoints tell what they see of the two links to the PC. Called from any thread.
class ILinkMonitor {
public:
    ILinkMonitor() = default;
    ILinkMonitor(const ILinkMonitor&) = delete;
    ILinkMonitor& operator=(const ILinkMonitor&) = delete;
    virtual ~ILinkMonitor() = default;

    virtual void SetTCPConnection(bool connected) = 0;
    virtual void SetUDPConnection(bool connected) = 0;
};
