#include "db/CRmDao.h"

#include "unit/support/AnalyzerDatabase.h"

using namespace UnitTest;

namespace {

class RmDaoTest : public ServiceTest {
protected:
    AnalyzerDatabase database_;
};

}  // namespace

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
