#pragma once

#include <sqlite3.h>

#include "unit/support/ServiceTest.h"

namespace UnitTest {

/// The analyzer's database as ZELApp makes it, and ZELApp's own connection to it.
class AnalyzerDatabase {
public:
    AnalyzerDatabase() {
        WriteFile("/data/config/config_webbase.cfg", "ConnectionString=" + std::string(kPath) + ";\n");
        WriteFile(kPath, "");
        EXPECT_EQ(sqlite3_open(kPath, &connection_), SQLITE_OK);
        Execute(
            "CREATE TABLE Tb_Result_Summary (ResultID INTEGER, PatientID, Birth, Sex, SpeciesID, SpeciesClass, "
            "ClientID,"
            " SpecimenType, Age, SerumIndexHEM, SerumIndexLIP, SerumIndexICT, ReagentVersion, SerialNumber, PanelID,"
            " LOTNumber, Date, OperatorID, ErrorCode, ErrorLevel, PCSync INTEGER DEFAULT 0);"
            "CREATE TABLE Tb_Result_Data (ResultID INTEGER, AnalyteID, Result REAL, Unit, RefRange_Min REAL,"
            " RefRange_Max REAL, QCFlag, Dynamic_Min REAL, Dynamic_Max REAL);"
            "CREATE TABLE Tb_Ctrl_Summary (ResultID INTEGER, ControlID, ReagentVersion, SerialNumber, PanelID, "
            "LOTNumber,"
            " QCMaterialName, QCMaterialLevel, QCMaterialLotNum, QCMaterialExpiredDate, Date, OperatorID, ErrorCode,"
            " ErrorLevel, PCSync INTEGER DEFAULT 0);"
            "CREATE TABLE Tb_Ctrl_Data (ResultID INTEGER, AnalyteID, Result REAL, TargetMean REAL, TargetSD REAL, "
            "QCFlag,"
            " SelectedRule, RuleFlag, Min REAL, Max REAL, Dynamic_Min REAL, Dynamic_Max REAL);"
            "CREATE TABLE Tb_Species_Feature (SpeciesID, Class);"
            "CREATE TABLE Tb_Operator_List (OperatorID, Password);"
            "CREATE TABLE Tb_Update_History (ModuleName, UpdateCompleteTime, ElapsedTime, OldVersion, NewVersion, "
            "Method);");
    }
    AnalyzerDatabase(const AnalyzerDatabase&) = delete;
    AnalyzerDatabase& operator=(const AnalyzerDatabase&) = delete;
    ~AnalyzerDatabase() { sqlite3_close(connection_); }

    void Execute(const std::string& statements) {
        EXPECT_EQ(sqlite3_exec(connection_, statements.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
            << sqlite3_errmsg(connection_);
    }

    static constexpr char kPath[] = "/data/db/analyzer.db";

private:
    sqlite3* connection_ = nullptr;
};

}  // namespace UnitTest
