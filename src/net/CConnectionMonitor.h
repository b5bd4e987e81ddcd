#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "common/CInstance.h"
#include "config/CConfigMgr.h"
#include "config/CDeviceInfo.h"
#include "net/CUDPServer.h"
#include "net/CUDSServer.h"
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
    /// Not used by the service itself: this object lasts as long as the process.
    static void DestroyInstance();

    CConnectionMonitor();

    /// Before anything else. All of it outlives the monitor.
    void Connect(CConfigMgr& config, CDeviceInfo& device, CUDPServer& udp, CUDSServer& local);

    bool ClaimLink(const std::shared_ptr<ISession>& session) override;
    void ReleaseLink(const ISession& session) override;

    /// Makes `session` the current one, whoever was, and counts the link as down until it is confirmed; null: there is
    /// none. Returns whether the link before is still waiting for its confirmation, another session's.
    bool ReplaceLink(const std::shared_ptr<ISession>& session);

    /// Counts the link as up if `session` is the current one.
    void ConfirmLink(const ISession& session);

    /// Counts the link as up because the registered PC was heard on `session`, which becomes current if there is none.
    void SeeLink(const std::shared_ptr<ISession>& session);

    void SetUDPConnection(bool connected) override;

    /// Whether the PC was last reported as connected.
    bool IsConnected() const { return connected_; }

    /// While set, notices of the address change go out.
    void SetIPChangePending(bool pending) { ipChangePending_ = pending; }

    /// Sends the registered PC one notice of the device's own address. Returns 0.
    int SendIPChangedInfo();

    int Run() override;

    /// Takes the TCP link for up and tells ZELApp that the PC is connected, without waiting for the UDP link. Not used
    /// by the service itself.
    void SetForceConnection();

private:
    /// Of all that were current, which one: a session that is registered anew is another link than before.
    struct Link {
        std::shared_ptr<ISession> session;
        unsigned number = 0;
    };

    void AnnounceIPChange();

    /// Compares the links with what was reported and tells what is different. Returns whether something was.
    bool Check();
    void EndReported();

    /// Has the links looked at in the next step.
    void NoteChange();

    /// Waits for a change, a second at most, because nobody tells when the stop flag is set.
    bool WaitForChange();

    bool IsRegistered(const std::string& address) const;

    // To be called behind linkMutex_.
    bool IsLinkFree(const ISession& session) const;
    void SetLink(const std::shared_ptr<ISession>& session, bool up);
    void SetTCPConnection(bool connected);

    static CInstance<CConnectionMonitor> instance_;

    QENFx::Log::FileLog* log_;
    CConfigMgr* config_ = nullptr;
    CDeviceInfo* device_ = nullptr;
    CUDPServer* udp_ = nullptr;
    CUDSServer* local_ = nullptr;

    std::mutex linkMutex_;       ///< before that of the current session
    unsigned linkNumber_ = 0;    ///< behind linkMutex_
    bool tcpConnected_ = false;  ///< behind linkMutex_
    Link reported_;              ///< of the monitor's thread: what ZELApp was last told to be connected
    std::atomic<bool> udpConnected_{false};
    std::atomic<bool> connected_{false};
    std::atomic<bool> ipChangePending_{false};

    std::mutex changeMutex_;  ///< the innermost
    std::condition_variable changeNoted_;
    bool changed_ = false;  ///< behind changeMutex_: the links may differ from what was last looked at
};

}  // namespace RMUP::Net
