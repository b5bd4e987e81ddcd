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

// Faults: a notice to a PC that was none, or to the new one; one after the answer; a value stored from the wrong place.
TEST_F(ConnectTest, RegistersAPC) {
    bool noticed = false;
    session_->onSend = [&] { noticed = !ReceiveDatagram(pc_, false).empty(); };
    session_->address = "127.0.0.9";
    EXPECT_EQ(Register(Registration("password", "TenLetters")), 0);
    EXPECT_FALSE(noticed);
    EXPECT_EQ(session_->sent, Buffers{Hex("0A04 31 4B 01 0010 4B")});
    EXPECT_EQ(Identity(), "127.0.0.9 TenLetters K 8080 40123 0 ");
    EXPECT_EQ(device_->GetStatus(), DeviceStatus::kRegistered);
    EXPECT_EQ(device_->GetSession(), session_);
    EXPECT_EQ(Logged("INFO [CConnectionMonitor::SetTCPConnection] TCP connection confirmed"), 1);

    config_->SetContents(kPCIPAddress, "127.0.0.1");
    config_->SetContents(kPCUDPPort, 40036);
    Buffer notice;
    session_->onSend = [&] { notice = ReceiveDatagram(pc_, false); };
    EXPECT_EQ(Register(Registration("password", "Next")), 0);
    EXPECT_EQ(notice, Hex("0A13 31 4B 01 002E 0400 01020304 4E657874000000000000"));
    EXPECT_EQ(Identity(), "127.0.0.9 Next K 8080 40123 0 ");
}

// Faults: somebody else's request that unregisters the PC, a second session that does.
TEST_F(ConnectTest, UnregistersTheRegisteredPCOnly) {
    const auto unregister = [this](std::uint8_t peerID) {
        CPCMsg request = Request(peerID, {});
        return CConnect().ProcessUnregisterDevice(request, session_);
    };
    EXPECT_EQ(unregister('8'), -1);
    session_->address = "127.0.0.9";
    EXPECT_EQ(unregister('7'), -1);
    EXPECT_TRUE(session_->sent.empty());
    session_->address = "127.0.0.1";
    EXPECT_EQ(unregister('7'), 0);
    EXPECT_EQ(Identity(), kOldIdentity);
    device_->SetSession(session_);
    EXPECT_EQ(unregister('7'), 0);
    EXPECT_EQ(Identity(), "0.0.0.0  0 0 1 1 ");
    EXPECT_EQ(session_->sent, Buffers(2, Hex("0A06 31 37 01 000E")));
}

// Faults: an entry out of order or of the wrong width, versions that are not read afresh, another PC told as
// registered.
TEST_F(ConnectTest, AnswersWhatTheMaskAsksFor) {
    const auto ask = [this](const char* mask) {
        CPCMsg request = Request(0, Hex(mask));
        session_->sent.clear();
        EXPECT_EQ(CConnect().ProcessGetDeviceInfo(request, session_), 0);
        return session_->sent.empty() ? Buffer() : session_->sent[0];
    };
    EXPECT_EQ(ask("1FFF"), Hex("0A1F 31 37 01 00DC 1FFF 04 07 234A 0A090807 534E2D30313233343536"
                               "312E302E302E3100 0000000000000000 312E302E302E3200 0000000000000000"
                               "0000000000000000 0000000000000000 312E32332E34352E 3637383930313200"
                               "312E32332E34352E 3637383930313200 0000 01"));
    WriteFile("/data/device/versions.cfg", "XML=2.0\n");
    EXPECT_EQ(ask("0200"), Hex("0A1F 31 37 01 0032 0200 312E32332E34352E 3637383930313200"));
    EXPECT_EQ(ask("0300").size(), 41U);
    EXPECT_EQ(ask("0200"), Hex("0A1F 31 37 01 0032 0200 322E3000 000000000000000000000000"));
    EXPECT_EQ(ask("E400"), Hex("0A1F 31 37 01 0012 E400"));
    device_->SetStatus(DeviceStatus::kAnalyzing);
    EXPECT_EQ(ask("0001"), Hex("0A1F 31 37 01 0014 0001 01"));
    device_->SetStatus(DeviceStatus::kUpdating);
    EXPECT_EQ(ask("0001"), Hex("0A1F 31 37 01 0014 0001 03"));

    session_->address = "1.1.40.2";
    EXPECT_EQ(ask("1008"), Hex("0A1F 31 FF 01 0038 1008 01012801 00 7F000001 4F6C645043 0000000000"));
}

// Faults: a stranger's notice that keeps the link up, a serial number compared beyond its field or only by its length,
// a payload read that is not there.
TEST_F(ConnectTest, AcknowledgesTheRegisteredPCsNotices) {
    const std::string up = "INFO [CConnectionMonitor::SetUDPConnection] UDP connection confirmed";
    const Buffer serial = Hex("2000 534E2D303132333435363738394142 00");
    struct Case {
        const char* address;
        std::uint16_t port;
        std::uint8_t peerID;
        Buffer payload;
        int result;
    };
    for (const auto& [address, port, peerID, payload, result] : {Case{"127.0.0.2", 40036, '7', Hex("0001"), 0},
                                                                 {"127.0.0.1", 40037, '7', Hex("0001"), 0},
                                                                 {"127.0.0.1", 40036, '7', Hex("20"), -1},
                                                                 {"127.0.0.1", 40036, '7', Hex("2000 534E"), -1},
                                                                 {"127.0.0.1", 40036, '7', Buffer(17, 0x20), -1},
                                                                 {"127.0.0.1", 40036, '8', serial, -1}}) {
        CPCMsg request = Request(peerID, payload);
        request.GetPeerAddress() = CNetUtils::SocketAddress(address, port);
        EXPECT_EQ(CConnect().ProcessDeviceInfoChangeNotify(request), result);
    }
    EXPECT_EQ(Logged(up), 0);
    EXPECT_EQ(ReceiveDatagram(pc_, false), Buffer());
    for (const Buffer& payload : {serial, Hex("0001")}) {
        CPCMsg request = Request('7', payload);
        request.GetPeerAddress() = CNetUtils::SocketAddress("127.0.0.1", 40036);
        EXPECT_EQ(CConnect().ProcessDeviceInfoChangeNotify(request), 0);
        EXPECT_EQ(ReceiveDatagram(pc_, false), Hex("0A14 31 37 01 000E"));
    }
    EXPECT_EQ(Logged(up), 1);
    EXPECT_EQ(Logged("INFO [CConnect::ProcessDeviceInfoChangeNotify] Request from unregistered PC(IP:127.0.0.2, "
                     "Port:40036)"),
              1);
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
