#include "process/CConnect.h"

#include "config/CConfigMgr.h"
#include "config/CDeviceInfo.h"
#include "unit/support/AnalyzerDatabase.h"
#include "unit/support/ScriptedSession.h"

using namespace UnitTest;

namespace {

class ConnectTest : public ServiceTest {};

constexpr char kSettings[] =
    "PCIPAddress=127.0.0.1;\nPCTCPPort=1;\nPCUDPPort=40036;\nPCSWName=OldPC;\nPCPeerID=7;\nIPChanged=1;\n";

CPCMsg Registration(const std::string& password) {
    Buffer payload(password.begin(), password.end());
    payload.resize(24);
    payload.push_back('K');
    CPCMsg request;
    EXPECT_FALSE(request.MakePacket(0x0A03, 0x31, 'J', payload).empty());
    return request;
}

}  // namespace

// Faults: a PC registered in the middle of a measurement or without the password, a refusal that the PC cannot match to
// its request, one that leaves a trace.
TEST_F(ConnectTest, RefusesRegistrations) {
    struct Case {
        DeviceStatus status;
        const char* stored;
        const char* given;
        const char* error;
    };
    WriteFile(kOwnConfigFile, kSettings);
    AnalyzerDatabase database;
    database.Execute("INSERT INTO Tb_Operator_List (OperatorID) VALUES ('admin')");
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
        database.Execute("UPDATE Tb_Operator_List SET Password = " + std::string(stored));
        device->SetStatus(status);
        session->errors.clear();
        CPCMsg request = Registration(given);
        EXPECT_EQ(CConnect().ProcessRegisterDevice(request, session), -1);
        EXPECT_EQ(session->errors, *error == 0 ? Buffers() : Buffers{Hex(error)}) << given;
    }
    EXPECT_TRUE(session->sent.empty());
    EXPECT_EQ(device->GetSession(), nullptr);
    EXPECT_EQ(ReadFile(kOwnConfigFile), kSettings);
}
