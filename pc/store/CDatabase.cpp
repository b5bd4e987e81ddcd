#include "store/CDatabase.h"

#include <chrono>

#include "store/CDatabaseError.h"

namespace ZELPC {

using Clock = std::chrono::steady_clock;

struct CDatabase::Deadline {
    Clock::time_point end;

    static int Passed(void* self) { return Clock::now() > static_cast<Deadline*>(self)->end ? 1 : 0; }
};

CDatabase::CDatabase(const std::string& path, Access access) {
    constexpr int kFlags[] = {SQLITE_OPEN_READONLY, SQLITE_OPEN_READWRITE, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE};
    const int code =
        sqlite3_open_v2(path.c_str(), &database_,
                        kFlags[static_cast<int>(access)] | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE, nullptr);
    if (code != SQLITE_OK) {
        const CDatabaseError error(code, sqlite3_errmsg(database_));
        sqlite3_close_v2(database_);
        throw error;
    }
    constexpr int kBusyMilliseconds = 5000;
    sqlite3_busy_timeout(database_, kBusyMilliseconds);
}

CDatabase::~CDatabase() {
    prepared_.clear();
    sqlite3_close_v2(database_);
}

void CDatabase::Execute(const char* sql) {
    if (sqlite3_exec(database_, sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
        throw CDatabaseError(database_);
    }
}

std::int64_t CDatabase::Number(const char* sql) {
    CStatement statement(database_, sql);
    return statement.Step() ? statement.Int(0) : 0;
}

std::string CDatabase::Text(const char* sql) {
    CStatement statement(database_, sql);
    return statement.Step() ? statement.Text(0) : std::string();
}

CStatement& CDatabase::Prepared(const char* sql) {
    auto& statement = prepared_[sql];
    if (statement == nullptr) {
        statement = std::make_unique<CStatement>(database_, sql);
    }
    return *statement;
}

void CDatabase::LimitTime(int milliseconds) {
    constexpr int kInstructionsBetweenLooks = 10000;
    if (milliseconds == 0) {
        sqlite3_progress_handler(database_, 0, nullptr, nullptr);
        return;
    }
    if (deadline_ == nullptr) {
        deadline_ = std::make_unique<Deadline>();
    }
    deadline_->end = Clock::now() + std::chrono::milliseconds(milliseconds);
    sqlite3_progress_handler(database_, kInstructionsBetweenLooks, &Deadline::Passed, deadline_.get());
}

}  // namespace ZELPC
