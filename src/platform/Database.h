#pragma once

#include <string>

#include "platform/Text.h"

namespace QENFx::Data::Collection {

/// One row of a table; owned by the table.
class Row {
public:
    Row() = default;
    Row(const Row&) = delete;
    Row& operator=(const Row&) = delete;
    virtual ~Row() = default;

    /// The column's text; the empty text when it is NULL or the table has no such column. Valid as long as the table.
    virtual const char* getString(const char* column) const = 0;

    /// The column's number; 0 when it is NULL, no number, or the table has no such column.
    virtual double getDouble(const char* column) const = 0;

    /// Whether the table has the column and it is not NULL.
    virtual bool exists(const char* column) const = 0;
};

/// The rows that a query gave, read into memory, with a cursor that starts before the first row.
class Table {
public:
    Table() = default;
    Table(const Table&) = delete;
    Table& operator=(const Table&) = delete;
    virtual ~Table() = default;

    /// Puts the cursor before the first row.
    virtual void Reset() = 0;

    /// Moves to the next row; false when there is none.
    virtual bool MoveNext() = 0;

    /// The row under the cursor, or null.
    virtual const Row* getCurrent() const = 0;
};

}  // namespace QENFx::Data::Collection

namespace QENFx::DB {

/// Thrown by pointer; whoever catches it deletes it.
class DBException {
public:
    explicit DBException(std::string message) : message_(std::move(message)) {}
    const char* GetMessage() const { return message_.c_str(); }

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
    void Close();
    void Execute(const Common::String& statement, unsigned timeout);

    /// The caller owns the table.
    Data::Collection::Table* getTable(const Common::String& statement, unsigned timeout);

private:
    void* handle_ = nullptr;
};

}  // namespace QENFx::DB
