#include "store/Schema.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <random>
#include <stdexcept>

#include "store/CDatabase.h"
#include "store/CDatabaseError.h"

namespace ZELPC {

namespace {

constexpr std::int64_t kApplicationId = 0x5A504353;  // "ZPCS"

/// Each entry brings the tables from the version that is its index to the next.
constexpr std::array kSteps{
    R"(CREATE TABLE meta (name TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID;

       CREATE TABLE result (
           id INTEGER PRIMARY KEY AUTOINCREMENT, serial TEXT NOT NULL, digest BLOB NOT NULL, received INTEGER NOT NULL,
           kind TEXT NOT NULL, patient TEXT NOT NULL, panel TEXT NOT NULL, measured TEXT NOT NULL,
           repeats INTEGER NOT NULL DEFAULT 0, text BLOB NOT NULL);
       CREATE UNIQUE INDEX result_identity ON result (serial, digest);
       CREATE INDEX result_patient ON result (patient, id);
       CREATE INDEX result_received ON result (received);

       CREATE TABLE aside (
           id INTEGER PRIMARY KEY AUTOINCREMENT, serial TEXT NOT NULL, digest BLOB NOT NULL, received INTEGER NOT NULL,
           times INTEGER NOT NULL, reason TEXT NOT NULL, text BLOB NOT NULL);
       CREATE UNIQUE INDEX aside_identity ON aside (serial, digest);

       CREATE TABLE destination (id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE);

       CREATE TABLE delivery (
           id INTEGER PRIMARY KEY AUTOINCREMENT, destination INTEGER NOT NULL REFERENCES destination (id),
           result INTEGER NOT NULL REFERENCES result (id), serial TEXT NOT NULL, state INTEGER NOT NULL DEFAULT 0,
           attempts INTEGER NOT NULL DEFAULT 0, reason TEXT NOT NULL DEFAULT '', queued INTEGER NOT NULL,
           changed INTEGER NOT NULL);
       CREATE INDEX delivery_waiting ON delivery (destination, serial, id) WHERE state = 0;
       CREATE INDEX delivery_held ON delivery (destination, serial, id) WHERE state = 1;
       CREATE INDEX delivery_result ON delivery (result, destination);)",

    // A result's text in a table without any index, so that to keep it is one short write; what it is found by follows.
    R"(CREATE TABLE original (id INTEGER PRIMARY KEY, serial TEXT NOT NULL, received INTEGER NOT NULL, text BLOB NOT NULL);
       INSERT INTO original SELECT id, serial, received, text FROM result;
       ALTER TABLE result DROP COLUMN text;)",
};

void Upgrade(CDatabase& database, std::size_t version) {
    database.Execute("BEGIN IMMEDIATE");
    for (std::size_t step = version; step < kSteps.size(); ++step) {
        database.Execute(kSteps[step]);
    }
    if (version == 0) {
        database.Execute(fmt::format("PRAGMA application_id = {}", kApplicationId).c_str());
        database.Execute(fmt::format("INSERT INTO meta VALUES ('store', '{:08X}')", std::random_device{}()).c_str());
    }
    database.Execute(fmt::format("PRAGMA user_version = {}", kSteps.size()).c_str());
    database.Execute("COMMIT");
}

/// A look at every page; of a huge store at those that a few seconds suffice for, so that its results do not wait.
void CheckPages(CDatabase& database) {
    constexpr int kMilliseconds = 5000;
    database.LimitTime(kMilliseconds);
    try {
        if (std::string found = database.Text("PRAGMA quick_check(1)"); found != "ok") {
            std::ranges::replace(found, '\n', ' ');
            throw std::runtime_error("it is damaged: " + found);
        }
    } catch (const CDatabaseError& error) {
        if (error.Code() != SQLITE_INTERRUPT) {
            throw;
        }
    }
    database.LimitTime(0);
}

}  // namespace

void RequireSound(CDatabase& database) {
    const auto version = static_cast<std::size_t>(database.Number("PRAGMA user_version"));
    const bool isNew = version == 0 && database.Number("SELECT count(*) FROM sqlite_schema") == 0;
    if (!isNew && database.Number("PRAGMA application_id") != kApplicationId) {
        throw std::runtime_error("it is the database of another program");
    }
    if (version > kSteps.size()) {
        throw std::runtime_error(fmt::format(
            "it was made by a newer version (it is of version {}, this program knows {})", version, kSteps.size()));
    }
    CheckPages(database);
}

void PrepareSchema(CDatabase& database) {
    if (database.ReadOnly()) {
        throw std::runtime_error("it cannot be written to");
    }
    const auto version = static_cast<std::size_t>(database.Number("PRAGMA user_version"));
    database.Execute("PRAGMA journal_mode = WAL");
    database.Execute("PRAGMA synchronous = FULL");
    database.Execute("PRAGMA foreign_keys = ON");
    if (version < kSteps.size()) {
        Upgrade(database, version);
    }
}

}  // namespace ZELPC
