#include "store/CStore.h"

#include <fmt/format.h>
#include <sys/statvfs.h>

#include <filesystem>
#include <stdexcept>

#include "base/Clock.h"
#include "store/CDatabaseError.h"
#include "store/ResultIdentity.h"
#include "store/Schema.h"

namespace ZELPC {

namespace {

std::unique_ptr<CDatabase> Open(const std::string& path) {
    try {
        if (std::filesystem::exists(path)) {
            // By a look that changes nothing: closing a file that could be written to would bring its log into it.
            CDatabase look(path, CDatabase::Access::kRead);
            RequireSound(look);
        }
        auto database = std::make_unique<CDatabase>(path, CDatabase::Access::kCreate);
        PrepareSchema(*database);
        return database;
    } catch (const std::exception& error) {
        throw std::runtime_error(fmt::format("the store {} cannot be used: {}", path, error.what()));
    }
}

}  // namespace

CStore::CStore(const StoreOptions& options)
    : options_(options), lock_(options.path + ".lock"), database_(Open(options.path)) {
    id_ = database_->Text("SELECT value FROM meta WHERE name = 'store'");
    writer_ = std::make_unique<CWriter>(*database_, options_.maxWaitingBytes,
                                        [this](const std::string& error) { SetProblem(error); });
    LoadArrivals();
}

void CStore::Close() {
    closing_ = true;
    writer_->End();
}

void CStore::SetDestinations(const std::vector<StoreDestination>& destinations) {
    // The writer has nothing to do yet, so its connection is free.
    targets_.clear();
    for (const StoreDestination& destination : destinations) {
        database_->Prepared("INSERT OR IGNORE INTO destination (name) VALUES (?)").Bind(destination.name).Run();
        CStatement& find = database_->Prepared("SELECT id FROM destination WHERE name = ?").Bind(destination.name);
        find.Step();
        targets_.push_back({find.Int(0), destination.kind});
        find.Reset();
    }
    if (!arrivals_.empty()) {
        FileAfter({});
    }
}

void CStore::Append(NewResult result, AppendDone done) {
    struct Appended {
        std::shared_ptr<const NewResult> content;
        AppendOutcome outcome;
    };
    const auto appended = std::make_shared<Appended>();
    appended->content = std::make_shared<const NewResult>(std::move(result));
    writer_->Submit(
        [this, appended](CDatabase& database) { appended->outcome = AppendNow(database, *appended->content); },
        [this, appended, done = std::move(done)](const std::string* error) {
            AppendOutcome& outcome = appended->outcome;
            if (error != nullptr) {
                outcome = {AppendStatus::kFailed, 0, *error};
            }
            Count(outcome);
            if (outcome.status == AppendStatus::kStored) {
                // Before anybody is told, so that nothing which is acknowledged can be left out.
                TakeArrival({outcome.id, appended->content});
            }
            done(outcome);
        },
        appended->content->Memory(), ComesAlone(appended->content->serial));
}

/// Of several analyzers that send at the same time, each would wait for all the others' transactions.
bool CStore::ComesAlone(const std::string& serial) {
    constexpr std::chrono::milliseconds kSameTime{5};
    const auto now = std::chrono::steady_clock::now();
    const std::lock_guard lock(mutex_);
    const bool alone = serial == lastSerial_ || now - lastAppend_ > kSameTime;
    lastSerial_ = serial;
    lastAppend_ = now;
    return alone;
}

AppendOutcome CStore::AppendNow(CDatabase& database, const NewResult& result) {
    if (const std::string reason = WhyNoResult(result.text); !reason.empty()) {
        return KeepAside(database, result, reason);
    }
    RequireRoom();
    if (arrivedBytes_ + result.Memory() > options_.maxWaitingBytes) {
        throw std::runtime_error("too much waits to be filed");
    }
    database.Prepared("INSERT INTO original (id, serial, received, text) VALUES (?, ?, ?, ?)")
        .Bind(++lastId_, result.serial, result.received, result.text)
        .Run();
    return {AppendStatus::kStored, lastId_, {}};
}

AppendOutcome CStore::KeepAside(CDatabase& database, const NewResult& result, const std::string& reason) {
    RequireRoom();
    database
        .Prepared(
            "INSERT INTO aside (serial, digest, received, times, reason, text) VALUES (?, ?, ?, 1, ?, ?) "
            "ON CONFLICT (serial, digest) DO UPDATE SET times = times + 1, received = excluded.received")
        .Bind(result.serial, ResultDigest(result.text), result.received, reason, result.text)
        .Run();
    // Nobody acknowledges these, so an analyzer may send them for ever.
    database.Prepared("DELETE FROM aside WHERE id <= (SELECT max(id) FROM aside) - 1000").Bind().Run();
    return {AppendStatus::kAside, 0, reason};
}

std::string CStore::WhyNoRoom() const {
    struct statvfs disk {};
    if (::statvfs(options_.path.c_str(), &disk) != 0) {
        return {};
    }
    const auto free = static_cast<std::int64_t>(disk.f_bavail) * static_cast<std::int64_t>(disk.f_frsize);
    return free >= options_.minFreeBytes
               ? std::string()
               : fmt::format("the disk of {} has {} MiB left, {} MiB are kept free for deliveries", options_.path,
                             free >> 20, options_.minFreeBytes >> 20);
}

void CStore::RequireRoom() const {
    if (const std::string why = WhyNoRoom(); !why.empty()) {
        throw std::runtime_error(why);
    }
}

void CStore::MarkDelivered(std::vector<std::int64_t> deliveries, Done done) {
    writer_->Submit(
        [deliveries = std::move(deliveries)](CDatabase& database) {
            CStatement& mark =
                database.Prepared("UPDATE delivery SET state = 2, attempts = 0, reason = '', changed = ? WHERE id = ?");
            for (const std::int64_t delivery : deliveries) {
                mark.Bind(NowMilliseconds(), delivery).Run();
            }
        },
        std::move(done));
}

void CStore::Mark(DeliveryMark mark, Done done) {
    writer_->Submit(
        [mark = std::move(mark)](CDatabase& database) {
            // Somebody may have dropped it meanwhile.
            database
                .Prepared(
                    "UPDATE delivery SET state = ?, attempts = ?, reason = ?, changed = ? WHERE id = ? AND state = 0")
                .Bind(static_cast<int>(mark.state), mark.attempts, mark.reason, NowMilliseconds(), mark.id)
                .Run();
        },
        std::move(done));
}

void CStore::Probe() {
    writer_->Submit(
        [](CDatabase& database) {
            database.Prepared("INSERT OR REPLACE INTO meta VALUES ('probe', ?)")
                .Bind(std::to_string(NowMilliseconds()))
                .Run();
        },
        [](const std::string*) {});
}

StoreHealth CStore::Health() const {
    StoreHealth health;
    {
        const std::lock_guard lock(mutex_);
        health = health_;
    }
    if (health.problem.empty()) {
        health.problem = WhyNoRoom();
    }
    return health;
}

void CStore::Count(const AppendOutcome& outcome) {
    const std::lock_guard lock(mutex_);
    std::int64_t* const counters[] = {&health_.stored, &health_.aside, &health_.failed};
    ++*counters[static_cast<int>(outcome.status)];
}

void CStore::SetProblem(const std::string& problem) {
    const std::lock_guard lock(mutex_);
    health_.problem = problem;
}

}  // namespace ZELPC
