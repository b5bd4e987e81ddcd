#pragma once

#include <memory>
#include <string>

#include "platform/Config.h"
#include "platform/Database.h"
#include "platform/Log.h"

/// The service's access to the analyzer's database, which ZELApp writes. Made for one piece of work by the thread that
/// does it: each object has a connection of its own. Nothing is thrown; failures are logged and returned.
///
/// Conditions are SQL conditions of ZELApp's own making and go into the statement as they are.
class CRmDao {
public:
    using Table = std::unique_ptr<QENFx::Data::Collection::Table>;

    /// Opens the database that "config_webbase.cfg" names. When that fails, every operation fails.
    CRmDao();
    CRmDao(const CRmDao&) = delete;
    CRmDao& operator=(const CRmDao&) = delete;
    ~CRmDao();

    /// Adds a row to the update history. The texts are the program's own and hold no quotes. Returns 0 or -1.
    [[nodiscard]] int SetUpdateHistory(const std::string& module, const std::string& completeTime,
                                       const std::string& elapsedTime, const std::string& oldVersion,
                                       const std::string& newVersion, const std::string& method);

    /// Mark results as sent to the PC. Return 0 or -1.
    [[nodiscard]] int SetSyncResult(const std::string& condition);
    [[nodiscard]] int SetSyncCtrlResult(const std::string& condition);

    /// The rows for a condition, or null on error.
    Table GetResultSummary(const std::string& condition);
    Table GetResultData(const std::string& condition);
    Table GetControlSummary(const std::string& condition);
    Table GetControlData(const std::string& condition);

    /// The class of a species; empty when it has none. Not used by the service itself.
    std::string GetClassFromSpeciesID(const std::string& speciesId);

    /// The administrator password; empty when there is none.
    std::string GetAdminPassword();

private:
    int Execute(const char* tag, const QENFx::Common::String& statement);
    Table Select(const char* tag, const QENFx::Common::String& statement);

    QENFx::Log::FileLog* log_;
    std::unique_ptr<QENFx::Data::Properties::FileProperty> config_;
    std::unique_ptr<QENFx::DB::Sqlite> database_;
};
