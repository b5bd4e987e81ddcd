#include "net/CConnectionMonitor.h"

#include "unit/support/ScriptedSession.h"

using namespace UnitTest;

namespace {

class ConnectionMonitorTest : public ServiceTest {
protected:
    ConnectionMonitorTest() {
        WriteFile(kOwnConfigFile, "PCIPAddress=127.0.0.1;\n");
        monitor_.Connect(*CConfigMgr::GetInstance(), *device_, *RMUP::Net::CUDPServer::GetInstance(),
                         *RMUP::Net::CUDSServer::GetInstance());
    }

    static std::ptrdiff_t Ups() {
        return Logged("INFO [CConnectionMonitor::SetTCPConnection] TCP connection confirmed");
    }

    RMUP::Net::CConnectionMonitor monitor_;
    CDeviceInfo* device_ = CDeviceInfo::GetInstance();
};

}  // namespace

// Faults: two threads that both become the current session, a session that forgets another one.
TEST_F(ConnectionMonitorTest, OneSessionIsCurrent) {
    std::atomic<int> current{0};
    std::atomic<int> claims{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 500; ++round) {
                const auto session = std::make_shared<ScriptedSession>();
                if (monitor_.ClaimLink(session)) {
                    EXPECT_EQ(++current, 1);
                    EXPECT_EQ(device_->GetSession(), session);
                    ++claims;
                    --current;
                }
                monitor_.ReleaseLink(*session);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_GT(claims, 0);
    EXPECT_EQ(Ups(), claims);
    EXPECT_EQ(device_->GetSession(), nullptr);
}

// Faults: the link of a PC that came meanwhile confirmed for an earlier one, a PC kept out by its own closed
// connection, one that is not registered let in, a registered PC that is heard and stays without a session.
TEST_F(ConnectionMonitorTest, TheLinkBelongsToTheCurrentSession) {
    const auto first = std::make_shared<ScriptedSession>();
    const auto second = std::make_shared<ScriptedSession>();
    const auto stranger = std::make_shared<ScriptedSession>();
    stranger->address = "127.0.0.2";
    EXPECT_FALSE(monitor_.ReplaceLink(first));
    EXPECT_TRUE(monitor_.ReplaceLink(second));
    monitor_.ConfirmLink(*first);
    EXPECT_EQ(Ups(), 0);
    monitor_.ConfirmLink(*second);
    EXPECT_EQ(Ups(), 1);

    EXPECT_FALSE(monitor_.ReplaceLink(first)) << "the one before was confirmed";
    EXPECT_FALSE(monitor_.ClaimLink(second));
    first->closed = true;
    EXPECT_FALSE(monitor_.ClaimLink(stranger));
    EXPECT_TRUE(monitor_.ClaimLink(second));
    monitor_.ReleaseLink(*first);
    EXPECT_EQ(device_->GetSession(), second);

    monitor_.ReleaseLink(*second);
    monitor_.SeeLink(stranger);
    EXPECT_EQ(device_->GetSession(), nullptr);
    monitor_.SeeLink(second);
    EXPECT_EQ(device_->GetSession(), second);
    EXPECT_EQ(Ups(), 3);
}
