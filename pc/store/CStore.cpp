#include "store/CStore.h"

#include <fmt/format.h>
#include <sys/statvfs.h>

#include <filesystem>
#include <stdexcept>

#include "base/Clock.h"
#include "result/LabResult.h"
#include "store/CDatabaseError.h"
#include "store/ResultIdentity.h"
#include "store/Schema.h"

namespace ZELPC {

namespace {

constexpr std::size_t kOverhead = 512;  // of memory, beside the text of a result that waits

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

ResultFacts FactsOf(std::string_view text) {
    const auto result = ReadLabSummary(text);
    if (!result.has_value()) {
        return {};
    }
    return {result->control ? "Q" : "P", result->patient, result->panel, result->measured};
}

}  // namespace

CStore::CStore(const StoreOptions& options)
    : options_(options), lock_(options.path + ".lock"), database_(Open(options.path)) {
    id_ = database_->Text("SELECT value FROM meta WHERE name = 'store'");
    writer_ = std::make_unique<CWriter>(*database_, options_.maxWaitingBytes,
                                        [this](const std::string& error) { SetProblem(error); });
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
}

void CStore::Append(NewResult result, AppendDone done) {
    const auto outcome = std::make_shared<AppendOutcome>();
    const auto content = std::make_shared<const NewResult>(std::move(result));
    const std::size_t size = content->text.size() + kOverhead;
    writer_->SubmitUrgent([this, content, outcome](CDatabase& database) { *outcome = AppendNow(database, *content); },
                          [this, content, outcome, done = std::move(done)](const std::string* error) {
                              if (error != nullptr) {
                                  *outcome = {AppendStatus::kFailed, 0, *error};
                              }
                              Count(*outcome);
                              done(*outcome);
                              if (outcome->status == AppendStatus::kStored && stored_) {
                                  stored_(outcome->id, content->serial);
                              }
                          },
                          size);
}

AppendOutcome CStore::AppendNow(CDatabase& database, const NewResult& result) {
    if (const std::string reason = WhyNoResult(result.text); !reason.empty()) {
        return KeepAside(database, result, reason);
    }
    const std::string digest = ResultDigest(result.text);
    CStatement& repeat =
        database.Prepared("UPDATE result SET repeats = repeats + 1 WHERE serial = ? AND digest = ? RETURNING id");
    if (repeat.Bind(result.serial, digest).Step()) {
        const std::int64_t id = repeat.Int(0);
        repeat.Run();
        return {AppendStatus::kRepeated, id, {}};
    }
    RequireRoom();
    const ResultFacts facts = FactsOf(result.text);
    database
        .Prepared(
            "INSERT INTO result (serial, digest, received, kind, patient, panel, measured, text) "
            "VALUES (?, ?, ?, ?, ?, ?, ?, ?)")
        .Bind(result.serial, digest, result.received, facts.kind, facts.patient, facts.panel, facts.measured,
              result.text)
        .Run();
    const std::int64_t id = database.LastRowId();
    Queue(database, id, result, facts.kind);
    return {AppendStatus::kStored, id, {}};
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

void CStore::Queue(CDatabase& database, std::int64_t result, const NewResult& content, const std::string& kind) {
    for (const Target& target : targets_) {
        if (target.kind.empty() || target.kind == kind) {
            database
                .Prepared("INSERT INTO delivery (destination, result, serial, queued, changed) VALUES (?, ?, ?, ?, ?)")
                .Bind(target.id, result, content.serial, content.received, content.received)
                .Run();
        }
    }
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
    std::int64_t* const counters[] = {&health_.stored, &health_.repeated, &health_.aside, &health_.failed};
    ++*counters[static_cast<int>(outcome.status)];
}

void CStore::SetProblem(const std::string& problem) {
    const std::lock_guard lock(mutex_);
    health_.problem = problem;
}

}  // namespace ZELPC
