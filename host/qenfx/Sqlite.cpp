#include <sqlite3.h>

#include <charconv>
#include <cmath>
#include <memory>
#include <string_view>

#include "platform/Database.h"
#include "qenfx/Blanks.h"
#include "qenfx/Table.h"

namespace QENFx::DB {

namespace {

[[noreturn]] void Fail(const std::string& message) {
    throw new DBException(message);
}

sqlite3* Connection(void* handle) {
    if (handle == nullptr) {
        Fail("The database is not open");
    }
    return static_cast<sqlite3*>(handle);
}

/// One prepared statement of a connection.
class Statement {
public:
    Statement(sqlite3* connection, const std::string& text, unsigned timeout) : connection_(connection) {
        // SQLite counts in milliseconds; at least the time asked for is waited.
        sqlite3_busy_timeout(connection, static_cast<int>(timeout / 1000 + (timeout % 1000 != 0)));
        const char* rest = nullptr;
        if (sqlite3_prepare_v2(connection, text.c_str(), static_cast<int>(text.size()), &statement_, &rest) !=
            SQLITE_OK) {
            Fail(sqlite3_errmsg(connection));
        }
        const std::string_view behind(rest, static_cast<std::size_t>(text.c_str() + text.size() - rest));
        if (statement_ == nullptr || behind.find_first_not_of("; \t\r\n") != std::string_view::npos) {
            sqlite3_finalize(statement_);
            Fail("Not one SQL statement: " + text);
        }
    }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;
    ~Statement() { sqlite3_finalize(statement_); }

    /// Whether there is a row.
    bool Step() {
        const int result = sqlite3_step(statement_);
        if (result != SQLITE_ROW && result != SQLITE_DONE) {
            Fail(sqlite3_errmsg(connection_));
        }
        return result == SQLITE_ROW;
    }

    int ColumnCount() const { return sqlite3_column_count(statement_); }

    std::vector<std::string> ColumnNames() const {
        std::vector<std::string> names;
        for (int i = 0; i < ColumnCount(); ++i) {
            const char* name = sqlite3_column_name(statement_, i);
            names.emplace_back(name != nullptr ? name : "");
        }
        return names;
    }

    void ReadCell(int column, Data::Collection::Table::Content& table) {
        const int type = sqlite3_column_type(statement_, column);
        if (type == SQLITE_NULL) {
            table.AddNull();
            return;
        }
        // The number before the text: asking for the text may convert the cell.
        double number = type == SQLITE_INTEGER || type == SQLITE_FLOAT ? sqlite3_column_double(statement_, column) : 0;
        const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement_, column));
        const auto length = static_cast<std::size_t>(sqlite3_column_bytes(statement_, column));
        if (text == nullptr && sqlite3_errcode(connection_) == SQLITE_NOMEM) {
            Fail(sqlite3_errmsg(connection_));
        }
        const std::string_view content(text == nullptr ? "" : text, text == nullptr ? 0 : length);
        if (type == SQLITE_TEXT) {
            number = ReadNumber(content);
        }
        table.AddCell(content, number);
    }

private:
    static double ReadNumber(std::string_view text) {
        text = Host::TrimBlanks(text);
        if (text.starts_with('+')) {
            text.remove_prefix(1);
        }
        double number = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
        return error == std::errc() && end == text.data() + text.size() && std::isfinite(number) ? number : 0;
    }

    sqlite3* connection_;
    sqlite3_stmt* statement_ = nullptr;
};

}  // namespace

DBException::DBException(const std::string& message) : message_(message) {}

DBException::~DBException() = default;

const char* DBException::GetMessage() const {
    return message_.c_str();
}

// The field is the connection of SQLite, or null.
Sqlite::Sqlite() : fields_{} {}

Sqlite::~Sqlite() {
    sqlite3_close_v2(static_cast<sqlite3*>(fields_.content));
}

void Sqlite::Open(const Common::String& connectionString, int mode) {
    if (mode != kOpenReadWrite) {
        Fail("Unknown mode of opening a database");
    }
    const std::string named = connectionString.c_str();
    if (named.empty()) {
        Fail("No database is named");
    }
    Close();
    // SQLite gives names such as "file:..." and ":memory:" a meaning of their own; a path that begins with a directory
    // is always just a path.
    const std::string path = (named.front() == '/' ? "" : "./") + named;
    sqlite3* connection = nullptr;
    const int result = sqlite3_open_v2(path.c_str(), &connection, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    if (result != SQLITE_OK) {
        const std::string message = connection != nullptr ? sqlite3_errmsg(connection) : sqlite3_errstr(result);
        sqlite3_close_v2(connection);
        Fail(message + ": " + named);
    }
    fields_.content = connection;
}

void Sqlite::Close() {
    auto* connection = static_cast<sqlite3*>(fields_.content);
    if (sqlite3_close(connection) != SQLITE_OK) {
        Fail(sqlite3_errmsg(connection));
    }
    fields_.content = nullptr;
}

void Sqlite::Execute(const Common::String& statement, unsigned timeout) {
    Statement work(Connection(fields_.content), statement.c_str(), timeout);
    while (work.Step()) {
    }
}

Data::Collection::Table* Sqlite::getTable(const Common::String& statement, unsigned timeout) {
    Statement query(Connection(fields_.content), statement.c_str(), timeout);
    auto rows = std::make_unique<Data::Collection::Table::Content>(query.ColumnNames());
    while (query.Step()) {
        for (int column = 0; column < query.ColumnCount(); ++column) {
            query.ReadCell(column, *rows);
        }
    }
    return std::make_unique<Data::Collection::Table>(std::move(rows)).release();
}

}  // namespace QENFx::DB
