#pragma once

#include <atomic>
#include <memory>
#include <mutex>

#include "common/CInstance.h"
#include "net/ILinkMonitor.h"
#include "platform/Log.h"
#include "platform/Service.h"

namespace RMUP::Net {

/// Decides whether the PC counts as connected: it does while both the TCP link (a current session) and the UDP link
/// (its periodic notices) are up. Tells ZELApp of every change. After an address change it first tells the registered
/// PC the new address until the PC acknowledges.
class CConnectionMonitor : public QENFx::Service::Thread, public ILinkMonitor {
public:
    static CConnectionMonitor* GetInstance();
    static void DestroyInstance();

    CConnectionMonitor();

    bool ClaimLink(std::shared_ptr<IPCSession> session) override;
    void ReleaseLink(const IPCSession& session) override;
    void SetTCPConnection(bool connected);
    void SetUDPConnection(bool connected) override;

    /// Whether the PC was last reported as connected.
    bool IsConnected() const { return connected_; }

    /// While set, notices of the address change go out.
    void SetIPChangePending(bool pending) { ipChangePending_ = pending; }

    /// Takes the TCP link for up and tells ZELApp that the PC is connected, without waiting for the UDP link.
    void SetForceConnection();

    /// Sends the registered PC one notice of the device's own address. Returns 0.
    int SendIPChangedInfo();

    int Run() override;

private:
    void AnnounceIPChange();
    void Check();

    static CInstance<CConnectionMonitor> instance_;

    QENFx::Log::FileLog* log_;
    std::mutex linkMutex_;  ///< makes one step of what happens to a session and to its link
    std::atomic<bool> tcpConnected_{false};
    std::atomic<bool> udpConnected_{false};
    std::atomic<bool> connected_{false};
    std::atomic<bool> ipChangePending_{false};
};

}  // namespace RMUP::Net
