#include "process/CConnect.h"

#include <algorithm>

#include "config/CConfigMgr.h"
#include "config/CDeviceInfo.h"
#include "net/CUDPServer.h"
#include "unit/support/AnalyzerDatabase.h"
#include "unit/support/ScriptedSession.h"
#include "unit/support/Sockets.h"

using namespace UnitTest;

namespace {

class ConnectTest : public ServiceTest {
protected:
    ConnectTest() {
        WriteFile(kOwnConfigFile,
                  "ZELRMTCPPort=9034;\nPCIPAddress=127.0.0.1;\nPCTCPPort=1;\nPCUDPPort=40036;\nPCSWName=OldPC;\n"
                  "PCPeerID=7;\nIPChanged=1;\n");
        WriteFile(kSystemConfigFile, "IPAddress=10.9.8.7;\n");
        WriteFile("/data/device/nv.cfg", "sn=SN-0123456789ABCDE\nproject=N62X-LONG\n");
        WriteFile("/data/device/versions.cfg", "SYS=1.0.0.1\nAPP=1.0.0.2\nXML=1.23.45.6789012\n");
        database_.Execute("INSERT INTO Tb_Operator_List VALUES ('admin', 'password')");
        device_->Initialize();
        EXPECT_EQ(RMUP::Net::CUDPServer::GetInstance()->ServerOpen(), 0);
    }

    static CPCMsg Request(std::uint8_t subTag, const Buffer& payload) {
        CPCMsg request;
        EXPECT_FALSE(request.MakePacket(0x0A00, 0x31, subTag, payload).empty());
        return request;
    }

    static CPCMsg Registration(const std::string& password, const std::string& name = "NewPC") {
        Buffer payload(password.begin(), password.end());
        payload.resize(8);
        const Buffer rest = Hex("1F90 01020304");
        payload.insert(payload.end(), rest.begin(), rest.end());
        payload.insert(payload.end(), name.begin(), name.end());
        payload.resize(24);
        payload.push_back('K');
        return Request('J', payload);
    }

    int Register(CPCMsg request) { return CConnect().ProcessRegisterDevice(request, session_); }

    /// Name and value of what a registration stores.
    std::string Identity() const {
        std::string identity;
        for (const int key : {kPCIPAddress, kPCSWName, kPCPeerID, kPCUDPPort, kPCTCPPort, kIPChanged}) {
            identity += config_->GetContents(key) + " ";
        }
        return identity;
    }

    AnalyzerDatabase database_;
    CConfigMgr* config_ = CConfigMgr::GetInstance();
    CDeviceInfo* device_ = CDeviceInfo::GetInstance();
    std::shared_ptr<ScriptedSession> session_ = std::make_shared<ScriptedSession>();
    CDescriptor pc_ = UDPSocket(40036);
};

using ConnectDeathTest = ConnectTest;

constexpr char kOldIdentity[] = "127.0.0.1 OldPC 7 40036 1 1 ";

}  // namespace

// Faults: an answer to the datagram's source, a text that overruns its field.
TEST_F(ConnectTest, AnswersAScan) {
    config_->SetContents(kPCSWName, "ElevenChars");
    device_->SetStatus(DeviceStatus::kRegistrationNow);
    Buffer expected =
        Hex("0A02 31 FF 01 009E  534E2D303132333435363738394142 01 234A 0A090807 00000000000000000000"
            "7F000001 456C6576656E43686172 0000000000000000000000000000 4E3632582D4C4F4E");
    const std::uint32_t sum = CNetUtils::ByteSum(expected);
    for (const int shift : {24, 16, 8, 0}) {
        expected.push_back(static_cast<std::uint8_t>(sum >> shift));
    }
    CPCMsg request = Request(0, Hex("9C64 7F000001 FFFFFFFF"));
    EXPECT_EQ(CConnect().ProcessScanDevice(request), 0);
    EXPECT_EQ(ReceiveDatagram(pc_), expected);
}

// Fault: a field read that the request does not have.
TEST_F(ConnectTest, RefusesRequestsOfAnotherLength) {
    for (const std::size_t size : {0U, 1U, 3U, 9U, 11U, 24U, 26U}) {
        CPCMsg request = Request(0, Buffer(size));
        EXPECT_EQ(CConnect().ProcessScanDevice(request), -1);
        EXPECT_EQ(CConnect().ProcessRegisterDevice(request, session_), -1);
        EXPECT_EQ(CConnect().ProcessGetDeviceInfo(request, session_), -1);
    }
    EXPECT_EQ(Logged("ERROR [CConnect::ProcessScanDevice] Payload length differs from it's structure"), 7);
    EXPECT_EQ(ReceiveDatagram(pc_, false), Buffer());
    EXPECT_TRUE(session_->sent.empty() && session_->errors.empty());
}

// Faults: a PC registered in the middle of a measurement or without the password, a refusal that the PC cannot match to
// its request, one that leaves a trace.
TEST_F(ConnectTest, RefusesRegistrations) {
    struct Case {
        DeviceStatus status;
        const char* stored;
        const char* given;
        const char* error;
    };
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
        device_->SetStatus(status);
        session_->errors.clear();
        EXPECT_EQ(Register(Registration(given)), -1);
        EXPECT_EQ(session_->errors, *error == 0 ? Buffers() : Buffers{Hex(error)}) << given;
    }
    EXPECT_TRUE(session_->sent.empty());
    EXPECT_EQ(device_->GetSession(), nullptr);
    EXPECT_EQ(Identity(), kOldIdentity);
}

// Faults: a registered PC that is not told the new address, notices for a PC that needs none, a process that runs on.
TEST_F(ConnectDeathTest, AnAddressChangeEndsTheProcess) {
    const std::pair<const char*, const char*> cases[] = {{"0.0.0.0", "0"}, {"1.1.40.2", "0"}, {"192.168.40.20", "1"}};
    for (const auto& [address, changed] : cases) {
        EXPECT_EXIT(
            {
                config_->SetContents(kPCIPAddress, address);
                config_->SetContents(kIPChanged, 0);
                CConnect().ProcessIPChange();
            },
            testing::ExitedWithCode(1), "");
        EXPECT_EQ(config_->GetContents(kIPChanged), changed) << address;
    }
}
