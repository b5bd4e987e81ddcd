#pragma once

#include <string>

#include "common/CDescriptor.h"
#include "common/CInstance.h"
#include "config/CConfigMgr.h"
#include "net/CResultMarker.h"
#include "net/ILinkMonitor.h"
#include "net/Route.h"
#include "platform/Log.h"
#include "platform/Service.h"

namespace RMUP::Net {

/// Accepts the connections of PCs on port 9034 and starts a session for each. So that nobody can use up threads and
/// memory, there is an end to their number; the registered PC gets in all the same.
class CTCPListener : public QENFx::Service::Thread {
public:
    static CTCPListener* GetInstance();
    /// Not used by the service itself: this object lasts as long as the process.
    static void DestroyInstance();

    CTCPListener();

    /// Before Start. All of it outlives the listener and its sessions.
    void Connect(const TCPRoutes& routes, ILinkMonitor* monitor, const CConfigMgr& config);

    /// Opens, binds and listens, after closing what was open. Returns 0 or -1.
    [[nodiscard]] int ServerOpen();

    int Run() override;

private:
    [[nodiscard]] bool HasPlaceFor(const std::string& address) const;
    void StartSession(CDescriptor socket);

    static CInstance<CTCPListener> instance_;

    QENFx::Log::FileLog* log_;
    CDescriptor socket_;
    const TCPRoutes* routes_ = nullptr;
    ILinkMonitor* monitor_ = nullptr;
    const CConfigMgr* config_ = nullptr;
    CResultMarker results_;  ///< of all sessions
};

}  // namespace RMUP::Net
