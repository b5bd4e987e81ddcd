/// A result of 30 analytes from the database to its text, and the same rows read with SQLite alone. Runs under
/// tests/private-paths: the database, the settings and the log have the paths that they have on the analyzer.

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>

#include "common/Constants.h"
#include "core/Routes.h"
#include "process/CTransferResult.h"

namespace {

constexpr char kDatabase[] = "/data/db/analyzer.db";
constexpr char kKey[] = "ResultID = 12";

constexpr char kContent[] =
    "CREATE TABLE Tb_Result_Summary (ResultID INTEGER, PatientID TEXT, Birth TEXT, Sex TEXT, SpeciesID TEXT,"
    " SpeciesClass TEXT, ClientID TEXT, SpecimenType TEXT, Age TEXT, SerumIndexHEM TEXT, SerumIndexLIP TEXT,"
    " SerumIndexICT TEXT, ReagentVersion TEXT, SerialNumber TEXT, PanelID TEXT, LOTNumber TEXT, Date TEXT,"
    " OperatorID TEXT, ErrorCode TEXT, ErrorLevel TEXT, PCSync INTEGER DEFAULT 0);"
    "CREATE TABLE Tb_Result_Data (ResultID INTEGER, AnalyteID TEXT, Result REAL, Unit TEXT, RefRange_Min REAL,"
    " RefRange_Max REAL, QCFlag TEXT, Dynamic_Min REAL, Dynamic_Max REAL);"
    "INSERT INTO Tb_Result_Summary VALUES (12, 'P-000123', '2019-03-04', 'F', 'CANINE', 'Dog', 'W-3', 'SER', '48Y',"
    " '1', '2', '0', '3.1', 'D0815', 'Comprehensive 30', 'L2309', '2023-05-17 14:03:59', 'miller', '0', '0', 0);"
    "WITH RECURSIVE analyte(n) AS (SELECT 0 UNION ALL SELECT n + 1 FROM analyte WHERE n < 29)"
    " INSERT INTO Tb_Result_Data SELECT 12, 'AN' || n, n + 0.25, 'mg/dL', 5.5, 40.5, '0', 2.5, 900.5 FROM analyte;";

struct Close {
    void operator()(sqlite3* database) const { sqlite3_close(database); }
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Database = std::unique_ptr<sqlite3, Close>;
using Statement = std::unique_ptr<sqlite3_stmt, Close>;

Database Open() {
    sqlite3* database = nullptr;
    const int result = sqlite3_open(kDatabase, &database);
    Database opened(database);
    return result == SQLITE_OK ? std::move(opened) : nullptr;
}

void MakeAnalyzer() {
    for (const char* directory : {"/data/config", "/data/log", "/data/db"}) {
        std::filesystem::create_directories(directory);
    }
    std::ofstream("/data/config/config_webbase.cfg") << "ConnectionString=" << kDatabase << ";\n";
    std::ofstream("/data/config/config_zelapp.cfg") << "ReferenceRangeDisable=0;\n";
    const Database database = Open();
    if (database == nullptr || sqlite3_exec(database.get(), kContent, nullptr, nullptr, nullptr) != SQLITE_OK) {
        std::cerr << "the database cannot be made\n";
        std::exit(1);
    }
}

void LoadFillAndEncode(benchmark::State& state) {
    CTransferResult transfer(Service());
    for (auto _ : state) {
        std::string text;
        if (transfer.SetHL7ResultPacket(CTransferResult::kPatientResult, kKey, text) != 0 || text.size() < 3000) {
            state.SkipWithError("the result was not loaded");
        }
    }
}
BENCHMARK(LoadFillAndEncode)->Unit(benchmark::kMicrosecond);

/// All columns of the rows that a query selects, appended as text; false when there are none.
bool Select(const Database& database, const std::string& query, std::string& text) {
    sqlite3_stmt* prepared = nullptr;
    if (sqlite3_prepare_v2(database.get(), query.c_str(), -1, &prepared, nullptr) != SQLITE_OK) {
        return false;
    }
    const Statement statement(prepared);
    bool found = false;
    while (sqlite3_step(prepared) == SQLITE_ROW) {
        found = true;
        for (int column = 0; column < sqlite3_column_count(prepared); ++column) {
            if (const auto* value = sqlite3_column_text(prepared, column)) {
                text += reinterpret_cast<const char*>(value);
            }
            text += '|';
        }
    }
    return found;
}

/// The peer: opening the same database, reading the same rows and joining their columns.
void SelectAndJoin(benchmark::State& state) {
    for (auto _ : state) {
        const Database database = Open();
        std::string text;
        if (database == nullptr ||
            !Select(database, std::string("SELECT * FROM Tb_Result_Summary WHERE ") + kKey, text) ||
            !Select(database, std::string("SELECT * FROM Tb_Result_Data WHERE ") + kKey, text)) {
            state.SkipWithError("nothing was read");
        }
        benchmark::DoNotOptimize(text.data());
    }
}
BENCHMARK(SelectAndJoin)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int count, char** arguments) {
    MakeAnalyzer();
    benchmark::Initialize(&count, arguments);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
