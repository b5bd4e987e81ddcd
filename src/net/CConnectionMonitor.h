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
///
/// Which session is current and whether the TCP link is up changes in one step, in the operations on the link. They may
/// be called from any thread and wait for nobody.
class CConnectionMonitor : public QENFx::Service::Thread, public ILinkMonitor {
public:
    static CConnectionMonitor* GetInstance();
    static void DestroyInstance();

    CConnectionMonitor();

    bool ClaimLink(const std::shared_ptr<IPCSession>& session) override;
    void ReleaseLink(const IPCSession& session) override;

    /// Makes `session` the current one, whoever was, and counts the link as down until it is confirmed; null: there is
    /// none. Returns whether the link before is still waiting for its confirmation, another session's.
    bool ReplaceLink(const std::shared_ptr<IPCSession>& session);

    /// Counts the link as up if `session` is the current one.
    void ConfirmLink(const IPCSession& session);

    /// Counts the link as up because the registered PC was heard on `session`, which becomes current if there is none.
    void SeeLink(const std::shared_ptr<IPCSession>& session);

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
    /// Of all that were current, which one: a session that is registered anew is another link than before.
    struct Link {
        std::shared_ptr<IPCSession> session;
        unsigned number = 0;
    };

    void AnnounceIPChange();
    void Check();
    void EndReported();

    // To be called behind linkMutex_.
    bool IsLinkFree(const IPCSession& session) const;
    void SetLink(const std::shared_ptr<IPCSession>& session, bool up);
    void SetTCPConnection(bool connected);

    static CInstance<CConnectionMonitor> instance_;

    QENFx::Log::FileLog* log_;
    std::mutex linkMutex_;       ///< before that of the current session
    unsigned linkNumber_ = 0;    ///< behind linkMutex_
    bool tcpConnected_ = false;  ///< behind linkMutex_
    Link reported_;              ///< of the monitor's thread: what ZELApp was last told to be connected
    std::atomic<bool> udpConnected_{false};
    std::atomic<bool> connected_{false};
    std::atomic<bool> ipChangePending_{false};
};

}  // namespace RMUP::Net
