#include "process/CConnect.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <atomic>
#include <csignal>
#include <map>
#include <random>

#include "config/CConfigMgr.h"
#include "config/CDeviceInfo.h"
#include "core/Routes.h"
#include "unit/support/AnalyzerDatabase.h"
#include "unit/support/ScriptedSession.h"

using namespace UnitTest;

namespace {

/// At the end of its steps the process is killed; a step is what makes a file last, which takes its time.
int stepsToLive = -1;

void Step() {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    if (stepsToLive > 0 && --stepsToLive == 0) {
        kill(getpid(), SIGKILL);
    }
}

/// Who leaves a lock dawdles, each time in another way, so that what is no single step falls apart.
std::atomic<bool> dawdling{false};

constexpr char kSettings[] =
    "PCIPAddress=127.0.0.1;\nPCTCPPort=1;\nPCUDPPort=40036;\nPCSWName=OldPC;\nPCPeerID=7;\nIPChanged=1;\n";

class ConnectTest : public ServiceTest {
protected:
    ConnectTest() {
        WriteFile(kOwnConfigFile, kSettings);
        database_.Execute("INSERT INTO Tb_Operator_List VALUES ('admin', 'pass')");
        // Made here, before there are threads.
        ConnectRoutes();
    }

    AnalyzerDatabase database_;
};

CPCMsg Registration(const std::string& password, char peerID = 'K', const std::string& name = "NewPC") {
    Buffer payload(password.begin(), password.end());
    payload.resize(14);
    payload.insert(payload.end(), name.begin(), name.end());
    payload.resize(24);
    payload.push_back(static_cast<std::uint8_t>(peerID));
    CPCMsg request;
    EXPECT_FALSE(request.MakePacket(PCCommand{0x0A03}, 0x31, 'J', payload).empty());
    return request;
}

}  // namespace

extern "C" int fsync(int descriptor) {
    Step();
    return static_cast<int>(syscall(SYS_fsync, descriptor));
}

extern "C" unsigned sleep(unsigned) {
    return 0;
}

extern "C" int pthread_mutex_unlock(pthread_mutex_t* mutex) {
    static const auto unlock = reinterpret_cast<int (*)(pthread_mutex_t*)>(dlsym(RTLD_NEXT, "pthread_mutex_unlock"));
    const int result = unlock(mutex);
    if (dawdling) {
        thread_local std::minstd_rand chance(static_cast<unsigned>(gettid()));
        usleep(static_cast<useconds_t>(chance() % 3000));
    }
    return result;
}

extern "C" int rename(const char* from, const char* to) {
    Step();
    return renameat(AT_FDCWD, from, AT_FDCWD, to);
}

// Faults: a PC registered in the middle of a measurement or without the password, a refusal that the PC cannot match to
// its request, one that leaves a trace, a peer ID that no line of settings holds.
TEST_F(ConnectTest, RefusesRegistrations) {
    struct Case {
        DeviceStatus status;
        const char* stored;
        const char* given;
        const char* error;
    };
    CDeviceInfo* device = CDeviceInfo::GetInstance();
    const auto session = std::make_shared<ScriptedSession>();
    using enum DeviceStatus;
    for (const auto& [status, stored, given, error] : {Case{kAnalyzing, "'pass'", "pass", "4A 31 000C"},
                                                       {kUpdating, "'pass'", "pass", "4A 31 000E"},
                                                       {kTransferResult, "'pass'", "pass", ""},
                                                       {kRegistrationNow, "'pass'", "pass", ""},
                                                       {kRegistered, "'pass'", "pas", "4A 31 0007"},
                                                       {kDisconnect, "'pass'", "passw", "4A 31 0007"},
                                                       {kDisconnect, "'pass'", "", "4A 31 0007"},
                                                       {kDisconnect, "''", "", "4A 31 0007"},
                                                       {kDisconnect, "NULL", "", "4A 31 0007"},
                                                       {kDisconnect, "'123456789'", "12345678", "4A 31 0007"}}) {
        database_.Execute("UPDATE Tb_Operator_List SET Password = " + std::string(stored));
        device->SetStatus(status);
        session->errors.clear();
        CPCMsg request = Registration(given);
        EXPECT_EQ(CConnect(Service()).ProcessRegisterDevice(request, session), -1);
        EXPECT_EQ(session->errors, *error == 0 ? Buffers() : Buffers{Hex(error)}) << given;
    }
    session->errors.clear();
    database_.Execute("UPDATE Tb_Operator_List SET Password = 'pass'");
    for (const char peerID : {'\n', '\r'}) {
        CPCMsg request = Registration("pass", peerID);
        EXPECT_EQ(CConnect(Service()).ProcessRegisterDevice(request, session), -1);
    }
    EXPECT_TRUE(session->errors.empty() && session->sent.empty());
    EXPECT_EQ(device->GetSession(), nullptr);
    EXPECT_EQ(ReadFile(kOwnConfigFile), kSettings);
}

// Fault: PCs that register in the same moment are stored by halves, or one is stored and another is current.
TEST_F(ConnectTest, RegistersOnePCAtATime) {
    for (int round = 0; round < 5; ++round) {
        std::map<char, std::shared_ptr<ScriptedSession>> sessions;
        std::vector<std::thread> threads;
        dawdling = true;
        for (char peerID = '1'; peerID <= '8'; ++peerID) {
            const auto session = sessions[peerID] = std::make_shared<ScriptedSession>();
            session->address += peerID;
            threads.emplace_back([=] {
                CPCMsg request = Registration("pass", peerID, std::string("PC-") + peerID);
                EXPECT_EQ(CConnect(Service()).ProcessRegisterDevice(request, session), 0);
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        dawdling = false;
        const RegisteredPC pc = CConfigMgr::GetInstance()->GetRegisteredPC();
        EXPECT_EQ(pc.address + pc.name, std::string("127.0.0.1") + pc.peerID + "PC-" + pc.peerID);
        EXPECT_EQ(CDeviceInfo::GetInstance()->GetSession(), sessions[pc.peerID]);
    }
}

// Fault: a daemon that ends while it stores a registration leaves a part of the new PC beside a part of the old one.
TEST_F(ConnectTest, ARegistrationIsStoredWholeOrNotAtAll) {
    const auto session = std::make_shared<ScriptedSession>();
    const RegisteredPC before = CConfigMgr::GetInstance()->GetRegisteredPC();
    int status = -1;
    for (int step = 1; status != 0; ++step) {
        const pid_t child = fork();
        if (child == 0) {
            stepsToLive = step;
            CPCMsg request = Registration("pass");
            _exit(CConnect(Service()).ProcessRegisterDevice(request, session));
        }
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(status == 0 || WTERMSIG(status) == SIGKILL);
        ASSERT_TRUE(status != 0 || step > 2) << "killed nowhere";
        const RegisteredPC pc = CConfigMgr::GetInstance()->GetRegisteredPC();
        EXPECT_TRUE((status != 0 && pc == before) || pc == (RegisteredPC{"127.0.0.1", 40123, 0, "NewPC", 'K'}))
            << step << ": " << ReadFile(kOwnConfigFile);
        EXPECT_EQ(pc != before, ReadFile(kOwnConfigFile).find("IPChanged=0") != std::string::npos);
        WriteFile(kOwnConfigFile, kSettings);
    }
}
