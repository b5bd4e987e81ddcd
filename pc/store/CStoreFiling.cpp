// Making results that are on the disk findable and queuing them. An analyzer does not wait for it, and many results share
// the writing of the tables and their indexes.
#include <algorithm>
#include <memory>
#include <utility>

#include "result/LabResult.h"
#include "store/CStore.h"
#include "store/ResultIdentity.h"

namespace ZELPC {

namespace {

constexpr std::chrono::milliseconds kPause{20};
constexpr std::chrono::seconds kPauseAfterFailure{1};
constexpr std::size_t kFiledTogether = 64;  // new results wait meanwhile

ResultFacts FactsOf(std::string_view text) {
    const auto result = ReadLabSummary(text);
    if (!result.has_value()) {
        return {};
    }
    return {result->control ? "Q" : "P", result->patient, result->panel, result->measured};
}

}  // namespace

/// What an earlier life of this program could not file any more: it is filed in the order of its numbers.
void CStore::LoadArrivals() {
    lastId_ = database_->Number("SELECT coalesce(max(seq), 0) FROM sqlite_sequence WHERE name = 'result'");
    CStatement& rows = database_->Prepared("SELECT id, serial, received, text FROM original WHERE id > ? ORDER BY id");
    rows.Bind(lastId_);
    while (rows.Step()) {
        auto content = std::make_shared<NewResult>(NewResult{rows.Text(1), rows.Text(3), rows.Int(2)});
        std::string digest = ResultDigest(content->text);
        lastId_ = rows.Int(0);
        arrivedBytes_ += content->Memory();
        arrivals_.push_back({lastId_, std::move(content), std::move(digest)});
    }
}

void CStore::TakeArrival(Arrival arrival) {
    arrivedBytes_ += arrival.content->Memory();
    arrivals_.push_back(std::move(arrival));
    FileAfter(kPause);
}

void CStore::FileAfter(std::chrono::milliseconds pause) {
    if (std::exchange(filingSoon_, true)) {
        return;
    }
    const auto filing = std::make_shared<Filing>();
    writer_->SubmitLater([this, filing](CDatabase& database) { FileSome(database, *filing); },
                         [this, filing](const std::string* error) {
                             filingSoon_ = false;
                             if (error == nullptr) {
                                 Filed(*filing);
                             } else {
                                 SetProblem(*error);
                             }
                             TellFilers(error);
                             // What cannot be filed at the end is filed by the next life of this program.
                             if (!arrivals_.empty() && !(error != nullptr && closing_)) {
                                 FileAfter(error == nullptr ? std::chrono::milliseconds(0) : kPauseAfterFailure);
                             }
                         },
                         pause);
}

void CStore::File(Done done) {
    writer_->Submit([](CDatabase&) {},
                    [this, done = std::move(done)](const std::string*) {
                        filers_.emplace_back(lastId_, done);
                        TellFilers(nullptr);
                    });
}

void CStore::TellFilers(const std::string* error) {
    const std::int64_t next = arrivals_.empty() ? lastId_ + 1 : arrivals_.front().id;
    std::erase_if(filers_, [error, next](const auto& filer) {
        const bool told = error != nullptr || filer.first < next;
        if (told) {
            filer.second(error);
        }
        return told;
    });
}

void CStore::FileSome(CDatabase& database, Filing& filing) {
    filing.arrivals = closing_ ? arrivals_.size() : std::min(arrivals_.size(), kFiledTogether);
    for (std::size_t index = 0; index < filing.arrivals; ++index) {
        const Arrival& arrival = arrivals_[index];
        if (FileOne(database, arrival)) {
            filing.stored.emplace_back(arrival.id, arrival.content->serial);
        } else {
            ++filing.repeated;
        }
    }
}

/// Whether it is a new one: two that came at the same time were both kept.
bool CStore::FileOne(CDatabase& database, const Arrival& arrival) {
    const NewResult& content = *arrival.content;
    if (CountRepeats(database, content, arrival.digest, arrival.repeats + 1) != 0) {
        database.Prepared("DELETE FROM original WHERE id = ?").Bind(arrival.id).Run();
        return false;
    }
    const ResultFacts facts = FactsOf(content.text);
    database
        .Prepared(
            "INSERT INTO result (id, serial, digest, received, kind, patient, panel, measured, repeats) "
            "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)")
        .Bind(arrival.id, content.serial, arrival.digest, content.received, facts.kind, facts.patient, facts.panel,
              facts.measured, arrival.repeats)
        .Run();
    Queue(database, arrival.id, content, facts.kind);
    return true;
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

void CStore::Filed(const Filing& filing) {
    for (std::size_t count = 0; count < filing.arrivals; ++count) {
        arrivedBytes_ -= arrivals_.front().content->Memory();
        arrivals_.pop_front();
    }
    {
        const std::lock_guard lock(mutex_);
        health_.stored -= filing.repeated;
        health_.repeated += filing.repeated;
    }
    if (stored_) {
        for (const auto& [id, serial] : filing.stored) {
            stored_(id, serial);
        }
    }
}

/// How often a result that is filed has come. 0: there is none; or its number.
std::int64_t CStore::CountRepeats(CDatabase& database, const NewResult& result, const std::string& digest,
                                  std::int64_t times) {
    // Most are new, and to look takes a fraction of an update that finds nothing.
    CStatement& find = database.Prepared("SELECT id FROM result WHERE serial = ? AND digest = ?");
    if (!find.Bind(result.serial, digest).Step()) {
        return 0;
    }
    const std::int64_t id = find.Int(0);
    find.Reset();
    database.Prepared("UPDATE result SET repeats = repeats + ? WHERE id = ?").Bind(times, id).Run();
    return id;
}

}  // namespace ZELPC
