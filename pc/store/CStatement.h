#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace ZELPC {

/// One prepared statement. Values are bound and columns read by position, from 1 and from 0, as SQLite counts them.
class CStatement {
public:
    /// Throws CDatabaseError when `sql` is not one statement of this database.
    CStatement(sqlite3* database, std::string_view sql);
    ~CStatement();
    CStatement(CStatement&& other) noexcept
        : database_(other.database_), statement_(std::exchange(other.statement_, nullptr)) {}
    CStatement& operator=(CStatement&&) = delete;

    /// Makes the statement ready to run with these values. Texts must live until it has run.
    template <class... Values>
    CStatement& Bind(const Values&... values) {
        Reset();
        int position = 0;
        (BindOne(++position, values), ...);
        return *this;
    }

    /// Runs up to the next row; false when there is none. Throws CDatabaseError.
    bool Step();
    /// Runs a statement that gives no rows.
    void Run();
    /// Lets go of what the statement holds in the database; a read would keep its snapshot alive.
    void Reset();

    std::int64_t Int(int column) const;
    std::string Text(int column) const;

private:
    void BindOne(int position, std::int64_t value);
    void BindOne(int position, int value) { BindOne(position, std::int64_t{value}); }
    void BindOne(int position, std::string_view value);
    void Check(int code) const;

    sqlite3* database_;
    sqlite3_stmt* statement_ = nullptr;
};

}  // namespace ZELPC
