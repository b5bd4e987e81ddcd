#include "process/CTransferResult.h"

#include <ctime>
#include <sstream>

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

    /// The segments of a result's message; the time of its making, which is looked at here, reads as TIME.
    static std::vector<std::string> Segments(int kind, const std::string& key, int expected = 0) {
        const auto now = [] {
            char text[15];
            const std::time_t time = std::time(nullptr);
            return std::string(text, std::strftime(text, sizeof(text), "%Y%m%d%H%M%S", std::localtime(&time)));
        };
        const std::string before = now();
        std::string text;
        EXPECT_EQ(CTransferResult().SetHL7ResultPacket(kind, key, text), expected);
        if (expected == 0) {
            const std::string made = text.substr(30, 14);
            EXPECT_TRUE(before <= made && made <= now()) << made;
            text.replace(30, 14, "TIME");
        }
        std::vector<std::string> segments;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line, '\r');) {
            segments.push_back(line);
        }
        return segments;
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

// Faults: a value in the wrong field, the LOINC code and equipment layout that PC programs know changed, a range made
// of one limit, a lot at every observation.
TEST_F(TransferResultTest, APatientResult) {
    std::vector<std::string> expected = {
        R"(MSH|^~\&|ORVELA|LAB|NULL|NULL|TIME||OUL^R22^OUL_R22|0|P|2.5.1|||ER|AL||UNICODE UTF-8|||LAB-29^IHE)",
        "PID|||P-4711||^^^^^^L||20190304|F|||||||||||||C9||||||||||||||S3^S3^ORVELA^^Canine",
        "SPM|1|||SER|||||||P",
        "SAC||||||||||||||||||||||||||||||||1+||2+||3+|||||||R5^ReagentVersion^ORVELA",
        "INV|",
        "OBR||NULL||SN-1^Panel^ORVELA||||||||||||NULL",
        "ORC|SC|NULL|||||||NULL",
        "OBX|1||^^LN|GLU|5.5|mmol/L|3.9-6.1||||F||E0,L1,N,EMPTY,EMPTY,EMPTY,EMPTY,4Y,0.5,33.0|||Anna||"
        "^Kelvora~^Kelvora|20230102113058",
        "SID||LOT8",
        "OBX|2||^^LN|ALB|41.25|g/L|-||||F||E0,L1,,EMPTY,EMPTY,EMPTY,EMPTY,4Y|||Anna||^Kelvora~^Kelvora|20230102113058"};
    EXPECT_EQ(Segments(1, "ResultID = 12"), expected);
    EXPECT_EQ(Logged("INFO sUserDefinePlus = \"E0,L1,,EMPTY,EMPTY,EMPTY,EMPTY,4Y\""), 1);

    WriteFile(kApplicationConfigFile, "ReferenceRangeDisable=1;\n");
    database_.Execute(
        "UPDATE Tb_Result_Summary SET Age = NULL, SpeciesID = '', ClientID = NULL, Birth = '2019',"
        " Date = '2023-01-02 11:30'; DELETE FROM Tb_Result_Data WHERE AnalyteID = 'ALB'");
    expected.pop_back();
    expected[1] = "PID|||P-4711||^^^^^^L|||F";
    expected[7] =
        "OBX|1||^^LN|GLU|5.5|mmol/L|0-0||||F||E0,L1,N,EMPTY,EMPTY,EMPTY,EMPTY,EMPTY,0.5,33.0|||Anna||"
        "^Kelvora~^Kelvora|20230102";
    EXPECT_EQ(Segments(1, "ResultID = 12"), expected);
}

// Faults: limits computed in double precision, units or animal data in a control, the patient's checks.
TEST_F(TransferResultTest, AControlResult) {
    const std::vector<std::string> expected = {
        R"(MSH|^~\&|ORVELA|LAB|NULL|NULL|TIME||OUL^R22^OUL_R22|0|P|2.5.1|||ER|AL||UNICODE UTF-8|||LAB-29^IHE)",
        "PID|||Q-1||^^^^^^L",
        "SPM|1|||BLD|||||||Q",
        "SAC|||||||||||||||||||||||||||||||||||||||||||R6^ReagentVersion^ORVELA",
        "INV|^Mat^^^High|||||||||||20251231||||ML7",
        "OBR||NULL||SN-1^QPanel^ORVELA||||||||||||NULL",
        "ORC|SC|NULL|||||||NULL",
        "OBX|1||^^LN|GLU|5.0||16777215.000000-16777216.000000||||F||,,N,1-2s,W,4.0,6.0,EMPTY,3.5,7.5|||Ben||"
        "^Kelvora~^Kelvora|20230102",
        "SID||LOT9"};
    EXPECT_EQ(Segments(0, "ResultID = 12"), expected);
}

// Faults: a crash without a row, a failure that says nothing.
TEST_F(TransferResultTest, MissingRowsAndTables) {
    EXPECT_EQ(Segments(1, "ResultID = 99").size(), 1U);
    EXPECT_EQ(Logged("ERROR [CTransferResult::SetHL7ResultPacket] Cannot load 'Row'"), 1);
    database_.Execute("DROP TABLE Tb_Result_Summary; DROP TABLE Tb_Ctrl_Data");
    EXPECT_TRUE(Segments(1, "ResultID = 12", -1).empty());
    EXPECT_TRUE(Segments(2, "ResultID = 12", -1).empty());
    EXPECT_EQ(Logged("ERROR [CTransferResult::SetHL7ResultPacket] Get summary table error"), 1);
    EXPECT_EQ(Logged("ERROR [CTransferResult::SetHL7ResultPacket] Get detail table error"), 1);
}

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

// Fault: a result lost because it is marked although the PC does not have it.
TEST_F(TransferResultTest, AFailedResultIsNotMarked) {
    const Buffer failed = LocalMessage(0x0514, Hex("0B 00 02 51 20 00"));
    EXPECT_EQ(Transfer("1 ResultID = 12", "00 01", -1), failed);  // no session
    const auto session = std::make_shared<ScriptedSession>();
    device_->SetSession(session);
    EXPECT_EQ(Transfer("no request", "00 01", -1), failed);
    database_.Execute("UPDATE Tb_Ctrl_Summary SET ControlID = hex(zeroblob(16400))");
    EXPECT_EQ(Transfer("2 ResultID = 12", "00 01", -1), failed);  // longer than a packet
    session->fails = true;
    EXPECT_EQ(Transfer("1 ResultID = 12", "00 01", -1), failed);
    EXPECT_EQ(device_->GetStatus(), DeviceStatus::kDisconnect);
    EXPECT_EQ(Synchronised(), "0 0 ");
    EXPECT_TRUE(session->sent.empty());
}
