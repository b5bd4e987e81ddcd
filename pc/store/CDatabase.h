#pragma once

#include <sqlite3.h>

#include <map>
#include <memory>
#include <string>

#include "store/CStatement.h"

namespace ZELPC {

/// One connection to a SQLite file, for one thread at a time.
class CDatabase {
public:
    enum class Access { kRead, kWrite, kCreate };

    /// Opens the file; with kWrite it must be there, with kCreate it is made when it is not. Throws CDatabaseError.
    CDatabase(const std::string& path, Access access);
    ~CDatabase();
    CDatabase(const CDatabase&) = delete;
    CDatabase& operator=(const CDatabase&) = delete;

    /// Runs statements that give no rows.
    void Execute(const char* sql);
    /// The first column of the first row; 0 or the empty text when there is none.
    std::int64_t Number(const char* sql);
    std::string Text(const char* sql);

    /// The prepared form of `sql`, kept for the next time; `sql` must be a literal, or live as long as this object.
    CStatement& Prepared(const char* sql);
    /// A statement made for this one use.
    CStatement Prepare(std::string_view sql) { return CStatement(database_, sql); }

    /// Rows that the last statement changed.
    std::int64_t Changes() const { return sqlite3_changes64(database_); }
    /// By all statements since it was opened.
    std::int64_t AllChanges() const { return sqlite3_total_changes64(database_); }
    /// Whether a transaction is open; some errors end it by themselves.
    bool InTransaction() const { return sqlite3_get_autocommit(database_) == 0; }
    bool ReadOnly() const { return sqlite3_db_readonly(database_, "main") == 1; }

    /// Statements that take longer than this are broken off with SQLITE_INTERRUPT; 0: none is.
    void LimitTime(int milliseconds);

private:
    struct Deadline;

    sqlite3* database_ = nullptr;
    std::unique_ptr<Deadline> deadline_;
    // By address: literals do not move, and comparing texts would cost more than finding the statement saves.
    std::map<const char*, std::unique_ptr<CStatement>> prepared_;
};

}  // namespace ZELPC
