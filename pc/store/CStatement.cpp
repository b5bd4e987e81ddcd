#include "store/CStatement.h"

#include "store/CDatabaseError.h"

namespace ZELPC {

CStatement::CStatement(sqlite3* database, std::string_view sql) : database_(database) {
    Check(sqlite3_prepare_v3(database, sql.data(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT, &statement_,
                             nullptr));
}

CStatement::~CStatement() {
    sqlite3_finalize(statement_);
}

bool CStatement::Step() {
    const int code = sqlite3_step(statement_);
    if (code == SQLITE_ROW) {
        return true;
    }
    if (code != SQLITE_DONE) {
        const CDatabaseError error(database_);
        Reset();
        throw error;
    }
    Reset();
    return false;
}

void CStatement::Run() {
    while (Step()) {
    }
}

void CStatement::Reset() {
    sqlite3_reset(statement_);
}

std::int64_t CStatement::Int(int column) const {
    return sqlite3_column_int64(statement_, column);
}

std::string CStatement::Text(int column) const {
    const void* text = sqlite3_column_blob(statement_, column);
    const int size = sqlite3_column_bytes(statement_, column);
    return text == nullptr ? std::string()
                           : std::string(static_cast<const char*>(text), static_cast<std::size_t>(size));
}

void CStatement::BindOne(int position, std::int64_t value) {
    Check(sqlite3_bind_int64(statement_, position, value));
}

void CStatement::BindOne(int position, std::string_view value) {
    // Never a null pointer: that would bind NULL instead of the empty text.
    Check(sqlite3_bind_text64(statement_, position, value.empty() ? "" : value.data(), value.size(), SQLITE_STATIC,
                              SQLITE_UTF8));
}

void CStatement::Check(int code) const {
    if (code != SQLITE_OK) {
        throw CDatabaseError(database_);
    }
}

}  // namespace ZELPC
