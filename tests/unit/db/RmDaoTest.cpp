#include "db/CRmDao.h"

#include "unit/support/AnalyzerDatabase.h"

using namespace UnitTest;

namespace {

class RmDaoTest : public ServiceTest {
protected:
    AnalyzerDatabase database_;
};

/// One text of the first row; "none" without a row.
std::string First(const CRmDao::Table& table, const char* column) {
    if (table == nullptr || !table->MoveNext()) {
        return "none";
    }
    return table->getCurrent()->getString(column);
}

}  // namespace

// Faults: a statement on the wrong table, a result marked that was not meant, a history column exchanged with another.
TEST_F(RmDaoTest, ReadsAndMarksResults) {
    database_.Execute(
        "INSERT INTO Tb_Result_Summary (ResultID, PatientID) VALUES (1, 'P1'), (2, 'P2');"
        "INSERT INTO Tb_Ctrl_Summary (ResultID, ControlID) VALUES (1, 'C1'), (2, 'C2');"
        "INSERT INTO Tb_Result_Data (ResultID, AnalyteID) VALUES (2, 'GLU'), (2, NULL);"
        "INSERT INTO Tb_Ctrl_Data (ResultID, AnalyteID) VALUES (2, 'ALB');");
    CRmDao dao;
    EXPECT_EQ(First(dao.GetResultSummary("ResultID = 2"), "PatientID"), "P2");
    EXPECT_EQ(First(dao.GetControlSummary("ResultID = 2"), "ControlID"), "C2");
    EXPECT_EQ(First(dao.GetResultData("ResultID = 2"), "AnalyteID"), "GLU");
    EXPECT_EQ(First(dao.GetResultData("ResultID = 2 AND AnalyteID IS NULL"), "AnalyteID"), "");
    EXPECT_EQ(First(dao.GetControlData("ResultID = 2"), "AnalyteID"), "ALB");
    EXPECT_EQ(First(dao.GetResultSummary("ResultID = 3"), "PatientID"), "none");
    EXPECT_EQ(LogLines(), std::vector<std::string>(2, "INFO [CRmDao::GetResultSummary] Select complete"));

    EXPECT_EQ(dao.SetSyncResult("ResultID = 2"), 0);
    EXPECT_EQ(dao.SetSyncCtrlResult("ResultID = 1"), 0);
    EXPECT_EQ(database_.Values("SELECT PCSync FROM Tb_Result_Summary ORDER BY ResultID"), "0 1 ");
    EXPECT_EQ(database_.Values("SELECT PCSync FROM Tb_Ctrl_Summary ORDER BY ResultID"), "1 0 ");

    EXPECT_EQ(dao.SetUpdateHistory("RootF/S", "2023-01-02", "00:01", "1.0", "2.0", "USB"), 0);
    EXPECT_EQ(database_.Values("SELECT ModuleName, UpdateCompleteTime, ElapsedTime, OldVersion, NewVersion, Method"
                               " FROM Tb_Update_History"),
              "RootF/S 2023-01-02 00:01 1.0 2.0 USB ");
}

// Fault: a value that is not there, or is NULL, read as something else than the empty text.
TEST_F(RmDaoTest, ReadsSingleValues) {
    CRmDao dao;
    EXPECT_EQ(dao.GetAdminPassword() + dao.GetClassFromSpeciesID("7"), "");
    database_.Execute(
        "INSERT INTO Tb_Operator_List VALUES ('anna', 'x'), ('admin', NULL);"
        "INSERT INTO Tb_Species_Feature VALUES ('7', 'Reptile'), ('7', 'Bird'), ('7', 'Reptile'), ('8', 'Mammal');");
    EXPECT_EQ(dao.GetAdminPassword(), "");
    database_.Execute("UPDATE Tb_Operator_List SET Password = 'zel1' WHERE OperatorID = 'admin'");
    EXPECT_EQ(dao.GetAdminPassword(), "zel1");
    EXPECT_EQ(dao.GetClassFromSpeciesID("7"), "Bird");
    EXPECT_EQ(dao.GetClassFromSpeciesID("9"), "");
}

// Faults: a failure that escapes, that passes for success, or that says nothing.
TEST_F(RmDaoTest, MissingTablesFail) {
    database_.Execute(
        "DROP TABLE Tb_Result_Summary; DROP TABLE Tb_Ctrl_Data; DROP TABLE Tb_Operator_List;"
        "DROP TABLE Tb_Species_Feature; DROP TABLE Tb_Update_History;");
    CRmDao dao;
    EXPECT_EQ(dao.SetSyncResult("1"), -1);
    EXPECT_EQ(dao.SetUpdateHistory("", "", "", "", "", ""), -1);
    EXPECT_EQ(dao.GetResultSummary("1"), nullptr);
    EXPECT_EQ(dao.GetControlData("1"), nullptr);
    EXPECT_EQ(dao.GetResultData("no condition"), nullptr);
    EXPECT_EQ(dao.GetClassFromSpeciesID("7"), "");
    EXPECT_EQ(dao.GetAdminPassword(), "");
    EXPECT_THAT(LogLines(), testing::ElementsAre(
                                "ERROR [CRmDao::SetSyncResult] insert table error",
                                "ERROR [CRmDao::SetUpdateHistory] insert table error",
                                "ERROR [CRmDao::GetResultSummary] Select error: no such table: Tb_Result_Summary",
                                "ERROR [CRmDao::GetControlData] Select error: no such table: Tb_Ctrl_Data",
                                testing::StartsWith("ERROR [CRmDao::GetResultData] Select error: "),
                                "ERROR [CRmDao::GetClassFromSpeciesID] Select error: no such table: Tb_Species_Feature",
                                "ERROR [CRmDao::GetAdminPassword] get table error"));
}

// Faults: a statement that fails although ZELApp holds the database for a moment only, one that waits for ever.
TEST_F(RmDaoTest, WaitsForALockedDatabase) {
    using Clock = std::chrono::steady_clock;
    database_.Execute("INSERT INTO Tb_Result_Summary (ResultID) VALUES (1)");
    CRmDao dao;
    database_.Execute("BEGIN EXCLUSIVE");
    const auto begin = Clock::now();
    EXPECT_EQ(dao.SetSyncResult("1"), -1);
    EXPECT_EQ(dao.GetAdminPassword(), "");
    const auto waited = Clock::now() - begin;
    EXPECT_GE(waited, std::chrono::milliseconds(400));
    EXPECT_LT(waited, std::chrono::seconds(5));
    EXPECT_THAT(LogLines(), testing::ElementsAre("ERROR [CRmDao::SetSyncResult] insert table error",
                                                 "ERROR [CRmDao::GetAdminPassword] get table error"));

    std::thread zelApp([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        database_.Execute("COMMIT");
    });
    EXPECT_EQ(dao.SetSyncResult("1"), 0);
    zelApp.join();
}

// Faults: an empty database made in the place of one that is missing, a crash without a connection.
TEST_F(RmDaoTest, WithoutADatabaseEverythingFails) {
    for (const char* config :
         {"ConnectionString=/data/db/missing.db;\n", "Other=1;\n", static_cast<const char*>(nullptr)}) {
        std::filesystem::remove("/data/config/config_webbase.cfg");
        if (config != nullptr) {
            WriteFile("/data/config/config_webbase.cfg", config);
        }
        CRmDao dao;
        EXPECT_EQ(dao.SetSyncCtrlResult("1"), -1);
        EXPECT_EQ(dao.GetControlSummary("1"), nullptr);
        EXPECT_EQ(dao.GetClassFromSpeciesID("7") + dao.GetAdminPassword(), "");
    }
    EXPECT_FALSE(std::filesystem::exists("/data/db/missing.db"));
    const auto log = LogLines();
    EXPECT_EQ(log.size(), 15U);
    EXPECT_THAT(log[0], testing::StartsWith("ERROR [CRmDao::CRmDao] Can't open the DB: "));
    EXPECT_THAT(log[10], testing::StartsWith("ERROR [CRmDao::CRmDao] Exception: "));
}
