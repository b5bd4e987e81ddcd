#pragma once

#include <atomic>
#include <memory>
#include <mutex>

#include "config/CConfigMgr.h"
#include "net/CConnectionMonitor.h"
#include "net/CTCPSession.h"
#include "unit/support/Sockets.h"

namespace UnitTest {

using RMUP::Net::CConnectionMonitor;
using RMUP::Net::CTCPSession;

/// Sessions over loopback whose packets are kept.
class SessionTest : public ServiceTest {
protected:
    SessionTest() { WriteFile(kOwnConfigFile, "PCIPAddress=0.0.0.0;\n"); }

    /// The one of the process, connected.
    static CConnectionMonitor* Monitor() {
        static CConnectionMonitor* const monitor = [] {
            auto* made = CConnectionMonitor::GetInstance();
            made->Connect(*CConfigMgr::GetInstance(), *CDeviceInfo::GetInstance(),
                          *RMUP::Net::CUDPServer::GetInstance(), *RMUP::Net::CUDSServer::GetInstance());
            return made;
        }();
        return monitor;
    }

    /// A session that its own thread serves; from now on no call on its socket blocks.
    static std::shared_ptr<CTCPSession> Serve(CDescriptor device) {
        const int descriptor = device.Get();
        auto session = std::make_shared<CTCPSession>(std::move(device), kTCP, Monitor(), results_);
        session->Launch();
        EXPECT_TRUE(WaitUntil([descriptor] { return (fcntl(descriptor, F_GETFL) & O_NONBLOCK) != 0; }));
        return session;
    }

    static bool HasEnded(const std::shared_ptr<CTCPSession>& session) { return session.use_count() == 1; }

    /// Of each packet handled so far: tag, flag and payload.
    static Buffers Packets() {
        const std::lock_guard lock(mutex_);
        return packets_;
    }

    static void Keep(const CPCMsg& message, const std::shared_ptr<CTCPSession>&) {
        Buffer packet = {message.GetTag(), message.GetFlag()};
        packet.insert(packet.end(), message.GetPayload().begin(), message.GetPayload().end());
        const std::lock_guard lock(mutex_);
        packets_.push_back(packet);
    }

    inline static std::mutex mutex_;
    inline static Buffers packets_;
    inline static std::atomic<int> ends_{0};

    // Never deleted: a session may end after its test.
    inline static RMUP::Net::CResultMarker& results_ = *new RMUP::Net::CResultMarker;
    inline static const RMUP::Net::TCPRoutes& kTCP =
        *new RMUP::Net::TCPRoutes{{{PCCommand{0x0A1E}, &SessionTest::Keep}, {PCCommand{0x0A1C}, &SessionTest::Keep}},
                                  [](const std::shared_ptr<CTCPSession>&) { ++ends_; }};
};

}  // namespace UnitTest
