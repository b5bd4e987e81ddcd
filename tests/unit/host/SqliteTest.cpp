#include <sqlite3.h>

#include <memory>

#include "TempDir.h"
#include "platform/Database.h"

using namespace QENFx::DB;
using QENFx::Data::Collection::Row;
using QENFx::Data::Collection::Table;

namespace {

constexpr unsigned kTimeout = 200000;

/// The message of the exception that the work throws; empty when it throws none.
template <typename Work>
std::string Failure(Work work) {
    try {
        work();
    } catch (DBException* exception) {
        return std::unique_ptr<DBException>(exception)->GetMessage();
    }
    return "";
}

class SqliteTest : public testing::Test {
protected:
    SqliteTest() {
        sqlite3_open(path_.c_str(), &other_);
        Other(
            "CREATE TABLE T (Id INTEGER, Name TEXT, Value REAL, Note);"
            "INSERT INTO T VALUES (1, 'one', 0.1, NULL), (2, ' 2.5 ', 1e300, '12 mg');");
    }
    ~SqliteTest() override { sqlite3_close(other_); }

    /// What the analyzer's main application does to its database meanwhile.
    void Other(const char* statements) {
        ASSERT_EQ(sqlite3_exec(other_, statements, nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(other_);
    }

    std::unique_ptr<Table> Query(const char* statement) {
        return std::unique_ptr<Table>(database_.getTable(statement, kTimeout));
    }

    HostTest::TempDir dir_;
    const std::string path_ = dir_ / "analyzer.db";
    sqlite3* other_ = nullptr;
    Sqlite database_;
};

// Faults: a cursor that starts on the first row, NULL that counts as a value, a measured value read back through its
// text, a text taken for the number that it begins with, rows that change while one is held.
TEST_F(SqliteTest, ReadsRows) {
    database_.Open(path_, kOpenReadWrite);
    const auto table = Query("SELECT *, 0.1 + 0.2 AS Sum, Id AS Name FROM T ORDER BY Id");
    EXPECT_EQ(table->getCurrent(), nullptr);
    ASSERT_TRUE(table->MoveNext());
    const Row* first = table->getCurrent();
    ASSERT_TRUE(table->MoveNext());
    const Row* second = table->getCurrent();
    EXPECT_FALSE(table->MoveNext());
    EXPECT_EQ(table->getCurrent(), nullptr);
    EXPECT_FALSE(table->MoveNext());

    EXPECT_STREQ(first->getString("Name"), "one");
    EXPECT_STREQ(first->getString("name"), "one");
    EXPECT_STREQ(first->getString("Value"), "0.1");
    EXPECT_EQ(first->getDouble("Sum"), 0.1 + 0.2);
    EXPECT_EQ(first->getDouble("Name"), 0);
    EXPECT_FALSE(first->exists("Note"));
    EXPECT_STREQ(first->getString("Note"), "");
    EXPECT_FALSE(first->exists("Missing"));
    EXPECT_STREQ(first->getString("Missing"), "");
    EXPECT_EQ(first->getDouble("Missing"), 0);
    EXPECT_EQ(second->getDouble("Name"), 2.5);
    EXPECT_EQ(second->getDouble("Note"), 0);
    EXPECT_TRUE(second->exists("Note"));

    table->Reset();
    ASSERT_TRUE(table->MoveNext());
    EXPECT_EQ(table->getCurrent()->getDouble("Id"), 1);
    EXPECT_FALSE(Query("SELECT * FROM T WHERE Id = 3")->MoveNext());
}

// Faults: a second statement behind an appended condition that runs, or that is passed over in silence.
TEST_F(SqliteTest, RunsOneStatement) {
    database_.Open(path_, kOpenReadWrite);
    database_.Execute("UPDATE T SET Name = 'x' WHERE Id = 1 ; \n;", kTimeout);
    EXPECT_NE(Failure([&] { database_.Execute("UPDATE T SET Name = 'y'; DELETE FROM T", kTimeout); }), "");
    EXPECT_NE(Failure([&] { Query("SELECT * FROM T; DROP TABLE T"); }), "");
    EXPECT_NE(Failure([&] { Query(""); }), "");
    EXPECT_NE(Failure([&] { Query("SELECT * FROM Nowhere"); }).find("Nowhere"), std::string::npos);
    const auto table = Query("SELECT Name FROM T ORDER BY Id");
    ASSERT_TRUE(table->MoveNext());
    EXPECT_STREQ(table->getCurrent()->getString("Name"), "x");
}

// Faults: an empty database made where none is, a name that SQLite gives a meaning of its own, a use before opening.
TEST_F(SqliteTest, NeverMakesADatabase) {
    const std::string missing = dir_ / "missing.db";
    EXPECT_NE(Failure([&] { database_.Open(missing, kOpenReadWrite); }), "");
    EXPECT_FALSE(std::filesystem::exists(missing));
    for (const std::string& name : {std::string(), std::string(":memory:"), "file:" + missing + "?mode=rwc",
                                    std::string("file::memory:"), dir_.path().string()}) {
        EXPECT_NE(Failure([&] { database_.Open(name, kOpenReadWrite); }), "") << name;
    }
    EXPECT_FALSE(std::filesystem::exists(missing));
    EXPECT_NE(Failure([&] { database_.Open(path_, 0); }), "");
    EXPECT_NE(Failure([&] { Query("SELECT 1"); }), "");
    EXPECT_NE(Failure([&] { database_.Execute("SELECT 1", kTimeout); }), "");
    database_.Close();
}

}  // namespace
