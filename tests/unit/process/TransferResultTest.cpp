#include "process/CTransferResult.h"

#include "config/CConfigMgr.h"
#include "config/CDeviceInfo.h"
#include "net/CUDSServer.h"
#include "unit/support/AnalyzerDatabase.h"
#include "unit/support/ScriptedSession.h"
#include "unit/support/Sockets.h"

using namespace UnitTest;
using RMUP::Net::CUDSServer;

namespace {

class TransferResultTest : public ServiceTest {
protected:
    TransferResultTest() {
        WriteFile(kOwnConfigFile, "PCPeerID=K;\n");
        WriteFile(kApplicationConfigFile, "ReferenceRangeDisable=0;\n");
        database_.Execute(
            "INSERT INTO Tb_Result_Summary VALUES (12, 'P-4711', '2019-03-04', 'F', 'S3', 'Canine', 'C9', 'SER', '4Y',"
            " '1+', '2+', '3+', 'R5', 'SN-1', 'Panel', 'LOT8', '2023-01-02 11:30:58', 'Anna', 'E0', 'L1', 0);"
            "INSERT INTO Tb_Result_Data VALUES (12, 'GLU', 5.5, 'mmol/L', 3.9, 6.1, 'N', 0.5, 33),"
            " (12, 'ALB', 41.25, 'g/L', NULL, NULL, NULL, 10, NULL);"
            "INSERT INTO Tb_Ctrl_Summary VALUES (12, 'Q-1', 'R6', 'SN-1', 'QPanel', 'LOT9', 'Mat', 'High', 'ML7',"
            " '20251231', '2023-01-02', 'Ben', '', '', 0);"
            "INSERT INTO Tb_Ctrl_Data VALUES (12, 'GLU', 5, 16777216, 1, 'N', '1-2s', 'W', 4, 6, 3.5, 7.5);");
        device_->SetStatus(DeviceStatus::kRegistered);
    }

    /// Carries out a request of ZELApp whose payload is given, and returns what ZELApp is told.
    Buffer Transfer(const std::string& requestFile, const char* payload, int expected) {
        const CDescriptor zelApp = ConnectZELApp(*CUDSServer::GetInstance());
        WriteFile("/tmp/sendtopc.data", requestFile);
        CUDSMsg request;
        EXPECT_FALSE(request.GetSendPacket(0x0510, Hex(payload)).empty());
        EXPECT_EQ(CTransferResult().ProcessSendResult(request), expected);
        shutdown(zelApp.Get(), SHUT_RD);
        return Receive(zelApp, 100);
    }

    std::string Synchronised() {
        return database_.Values("SELECT PCSync FROM Tb_Result_Summary") +
               database_.Values("SELECT PCSync FROM Tb_Ctrl_Summary");
    }

    AnalyzerDatabase database_;
    CDeviceInfo* device_ = CDeviceInfo::GetInstance();
};

}  // namespace

// Fault: a text that is too short read beyond its end.
TEST_F(TransferResultTest, ConvertsDates) {
    const std::string date = "2023-01-02 11:30:58";
    EXPECT_EQ(CTransferResult::ConvertDate(date, 1), "20230102");
    EXPECT_EQ(CTransferResult::ConvertDate(date, 2), "20230102113058");
    EXPECT_EQ(CTransferResult::ConvertDate(date.substr(0, 18), 2), "20230102");
    EXPECT_EQ(CTransferResult::ConvertDate(date.substr(0, 10), 2), "20230102");
    for (const int mode : {0, 3}) {
        EXPECT_EQ(CTransferResult::ConvertDate(date, mode), "");
    }
    EXPECT_EQ(CTransferResult::ConvertDate(date.substr(0, 9), 1) + CTransferResult::ConvertDate("", 2), "");
}

// Faults: a request made of what an empty, foreign or cut file leaves behind, a memory filled by a huge one.
TEST_F(TransferResultTest, ReadsRequestFiles) {
    std::string key = "unchanged";
    EXPECT_EQ(CTransferResult().GetResultInfo(key), -1);
    for (const std::string& content :
         {std::string(), std::string("1"), std::string("1 "), std::string("x ResultID = 1"), std::string(" 1"),
          "1 " + std::string(4095, 'k'), "1 " + std::string(1 << 20, 'k')}) {
        WriteFile("/tmp/sendtopc.data", content);
        EXPECT_EQ(CTransferResult().GetResultInfo(key), -1) << content.substr(0, 20);
    }
    EXPECT_EQ(key, "unchanged");
    EXPECT_EQ(Logged("ERROR [CTransferResult::GetResultInfo] Cannot read request file(/tmp/sendtopc.data)"), 8);
    WriteFile("/tmp/sendtopc.data", "1\nResultID = 12");
    EXPECT_EQ(CTransferResult().GetResultInfo(key), 1);
    EXPECT_EQ(key, "ResultID = 12");
    WriteFile("/tmp/sendtopc.data", "0;" + std::string(4094, 'k'));
    EXPECT_EQ(CTransferResult().GetResultInfo(key), 0);
}

// Faults: the other kind marked as sent, a status that stays although ZELApp asked for it, a failed marking told as a
// failed transfer.
TEST_F(TransferResultTest, ASentResultIsMarked) {
    const auto session = std::make_shared<ScriptedSession>();
    device_->SetSession(session);
    EXPECT_EQ(Transfer("2 ResultID = 12", "00 01", 0), LocalMessage(0x0513, {}));
    EXPECT_EQ(Synchronised(), "0 1 ");
    EXPECT_EQ(device_->GetStatus(), DeviceStatus::kRegistered);
    const Buffer& sent = session->sent.at(0);
    EXPECT_EQ(Buffer(sent.begin(), sent.begin() + 5), Hex("7B01 01 4B 01"));
    EXPECT_TRUE(std::string(sent.begin() + 7, sent.end()).ends_with("\rSID||LOT9\r"));

    session->onSend = [this] { database_.Execute("BEGIN EXCLUSIVE"); };
    EXPECT_EQ(Transfer("1 ResultID = 12", "01 00", 0), LocalMessage(0x0513, {}));
    database_.Execute("COMMIT");
    EXPECT_EQ(Logged("ERROR [CTransferResult::ProcessSendResult] Write PCSync to 'true' error"), 1);
    EXPECT_EQ(device_->GetStatus(), DeviceStatus::kTransferResult);
    session->onSend = [] {};

    // What cannot be read goes out as an empty result: ZELApp and the PC decide what it is worth.
    database_.Execute("DROP TABLE Tb_Result_Data");
    EXPECT_EQ(Transfer("1 ResultID = 12", "", 0), LocalMessage(0x0513, {}));
    EXPECT_EQ(Synchronised(), "1 1 ");
    EXPECT_EQ(session->sent.back(), Hex("7B01 01 4B 01 000E"));
}
