#pragma once

#include <memory>
#include <string>

#include "platform/Object.h"
#include "platform/Text.h"

namespace QENFx::Data::Collection {

/// One row of a table; made and owned by the table. Reading it cannot fail and changes nothing.
class Row {
public:
    Row(const Row&) = delete;
    Row& operator=(const Row&) = delete;

    /// The column's text; the empty text when it is NULL or the table has no such column. Valid as long as the table.
    const char* getString(const char* column) const;

    /// The column's number; 0 when it is NULL, no number, or the table has no such column.
    double getDouble(const char* column) const;

    /// Whether the table has the column and it is not NULL.
    bool exists(const char* column) const;

protected:
    Row() = default;
    ~Row() = default;
};

/// The rows that a query gave, read into memory, with a cursor that starts before the first row. Used by one thread at
/// a time; it needs the connection no more.
class Table : public DeletedUnsized {
public:
    struct Content;

    explicit Table(std::unique_ptr<Content> content);
    Table(const Table&) = delete;
    Table& operator=(const Table&) = delete;
    ~Table();

    /// Puts the cursor before the first row.
    void Reset();

    /// Moves to the next row; false when there is none.
    bool MoveNext();

    /// The row under the cursor, or null.
    const Row* getCurrent() const;

private:
    std::unique_ptr<Content> content_;
};

}  // namespace QENFx::Data::Collection

namespace QENFx::DB {

/// Thrown by pointer; whoever catches it deletes it.
class DBException : public DeletedUnsized {
public:
    explicit DBException(const std::string& message);
    DBException(const DBException&) = delete;
    DBException& operator=(const DBException&) = delete;
    ~DBException();

    /// For the log; valid as long as the exception.
    const char* GetMessage() const;

private:
    std::string message_;
};

/// Opens an existing database for reading and writing.
inline constexpr int kOpenReadWrite = 0x1B5A;

/// A connection to an SQLite database. Used by one thread at a time. Every operation throws DBException* on failure. A
/// statement is one SQL statement; timeouts say in microseconds how long a statement waits for a locked database.
class Sqlite {
public:
    Sqlite();
    Sqlite(const Sqlite&) = delete;
    Sqlite& operator=(const Sqlite&) = delete;
    ~Sqlite();

    /// The connection string is the path of an existing database file.
    void Open(const Common::String& connectionString, int mode);

    /// Closes what is open; the destructor does it as well and tells nobody of a failure.
    void Close();

    /// Runs a statement that gives no rows: all of it, or nothing when it throws.
    void Execute(const Common::String& statement, unsigned timeout);

    /// The rows of a query, which may be none; never null. The caller owns the table.
    Data::Collection::Table* getTable(const Common::String& statement, unsigned timeout);

private:
    Fields<void, 256> fields_;
};

}  // namespace QENFx::DB
