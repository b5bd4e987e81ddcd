#include "db/CRmDao.h"

#include "common/CTaggedLog.h"
#include "common/Constants.h"
#include "common/FrameworkError.h"

using QENFx::Common::String;
using QENFx::Config::ConfigurationException;
using QENFx::Config::ConfigurationManager;
using QENFx::DB::DBException;
using QENFx::DB::Sqlite;

namespace {

constexpr char kDatabaseConfigFile[] = "/data/config/config_webbase.cfg";
constexpr unsigned kTimeoutMicroseconds = 200000;

std::string FirstText(QENFx::Data::Collection::Table& table, const char* column) {
    table.Reset();
    table.MoveNext();
    const QENFx::Data::Collection::Row* row = table.getCurrent();
    return row == nullptr ? "" : row->getString(column);
}

}  // namespace

CRmDao::CRmDao() : log_(QENFx::Log::Logger::getLogger()->getLog(kLogName)) {
    const CTaggedLog log(log_, "[CRmDao::CRmDao]");
    try {
        config_.reset(ConfigurationManager::GetManager()->Open(kDatabaseConfigFile, QENFx::Config::kOpenReadOnly));
        auto database = std::make_unique<Sqlite>();
        database->Open(config_->getValue("ConnectionString"), QENFx::DB::kOpenReadWrite);
        database_ = std::move(database);
    } catch (ConfigurationException* thrown) {
        log.WriteError("Exception: %s", TakeMessage(thrown).c_str());
    } catch (DBException* thrown) {
        log.WriteError("Can't open the DB: %s", TakeMessage(thrown).c_str());
    }
}

CRmDao::~CRmDao() {
    const CTaggedLog log(log_, "[CRmDao::~CRmDao]");
    if (database_ == nullptr) {
        return;
    }
    try {
        database_->Close();
    } catch (DBException* thrown) {
        log.WriteError("Can't close the DB: %s", TakeMessage(thrown).c_str());
    }
}

int CRmDao::SetUpdateHistory(const std::string& module, const std::string& completeTime, const std::string& elapsedTime,
                             const std::string& oldVersion, const std::string& newVersion, const std::string& method) {
    String statement;
    statement.Format(
        "INSERT INTO Tb_Update_History (ModuleName, UpdateCompleteTime, ElapsedTime, OldVersion, NewVersion, Method) "
        "VALUES ('%s', '%s', '%s', '%s', '%s', '%s');",
        module.c_str(), completeTime.c_str(), elapsedTime.c_str(), oldVersion.c_str(), newVersion.c_str(),
        method.c_str());
    return Execute("[CRmDao::SetUpdateHistory]", statement);
}

int CRmDao::SetSyncResult(const std::string& condition) {
    return Execute("[CRmDao::SetSyncResult]", "UPDATE Tb_Result_Summary SET PCSync = 1 WHERE " + condition);
}

int CRmDao::SetSyncCtrlResult(const std::string& condition) {
    return Execute("[CRmDao::SetSyncCtrlResult]", "UPDATE Tb_Ctrl_Summary SET PCSync = 1 WHERE " + condition);
}

CRmDao::Table CRmDao::GetResultSummary(const std::string& condition) {
    static constexpr char kTag[] = "[CRmDao::GetResultSummary]";
    const CTaggedLog log(log_, kTag);
    Table table = Select(kTag, "SELECT * FROM Tb_Result_Summary WHERE " + condition);
    if (table != nullptr) {
        log.WriteInfo("Select complete");
    }
    return table;
}

CRmDao::Table CRmDao::GetResultData(const std::string& condition) {
    return Select("[CRmDao::GetResultData]", "SELECT * FROM Tb_Result_Data WHERE " + condition);
}

CRmDao::Table CRmDao::GetControlSummary(const std::string& condition) {
    return Select("[CRmDao::GetControlSummary]", "SELECT * FROM Tb_Ctrl_Summary WHERE " + condition);
}

CRmDao::Table CRmDao::GetControlData(const std::string& condition) {
    return Select("[CRmDao::GetControlData]", "SELECT * FROM Tb_Ctrl_Data WHERE " + condition);
}

std::string CRmDao::GetClassFromSpeciesID(const std::string& speciesId) {
    const Table table =
        Select("[CRmDao::GetClassFromSpeciesID]",
               "SELECT Class FROM Tb_Species_Feature WHERE SpeciesID = '" + speciesId + "' GROUP BY Class;");
    return table == nullptr ? "" : FirstText(*table, "Class");
}

std::string CRmDao::GetAdminPassword() {
    const CTaggedLog log(log_, "[CRmDao::GetAdminPassword]");
    const String statement = "SELECT Password FROM Tb_Operator_List WHERE OperatorID = 'admin'";
    try {
        if (database_ != nullptr) {
            const Table table(database_->getTable(statement, kTimeoutMicroseconds));
            return FirstText(*table, "Password");
        }
    } catch (DBException* thrown) {
        (void)TakeMessage(thrown);
    }
    log.WriteError("get table error");
    return {};
}

int CRmDao::Execute(const char* tag, const String& statement) {
    try {
        if (database_ != nullptr) {
            database_->Execute(statement, kTimeoutMicroseconds);
            return 0;
        }
    } catch (DBException* thrown) {
        (void)TakeMessage(thrown);
    }
    CTaggedLog(log_, tag).WriteError("insert table error");
    return -1;
}

CRmDao::Table CRmDao::Select(const char* tag, const String& statement) {
    std::string error = "database is not open";
    try {
        if (database_ != nullptr) {
            return Table(database_->getTable(statement, kTimeoutMicroseconds));
        }
    } catch (DBException* thrown) {
        error = TakeMessage(thrown);
    }
    CTaggedLog(log_, tag).WriteError("Select error: %s", error.c_str());
    return nullptr;
}
