// Making results that are on the disk findable and queuing them. An analyzer does not wait for it, and many results
// share the writing of the tables and their indexes.
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
        lastId_ = rows.Int(0);
        arrivedBytes_ += content->Memory();
        arrivals_.push_back({lastId_, std::move(content)});
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
                    [this, done = std::move(done)](const std::string* error) {
                        if (error != nullptr) {
                            done(error);  // refused: then this is not the thread that writes
                            return;
                        }
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
    const std::size_t count = closing_ ? arrivals_.size() : std::min(arrivals_.size(), kFiledTogether);
    for (std::size_t index = 0; index < count; ++index) {
        filing.push_back(FileOne(database, arrivals_[index]));
    }
}

std::int64_t CStore::FileOne(CDatabase& database, const Arrival& arrival) {
    const NewResult& content = *arrival.content;
    const std::string digest = ResultDigest(content.text);
    CStatement& find = database.Prepared("SELECT id FROM result WHERE serial = ? AND digest = ?");
    if (find.Bind(content.serial, digest).Step()) {
        const std::int64_t id = find.Int(0);
        find.Reset();
        database.Prepared("UPDATE result SET repeats = repeats + 1 WHERE id = ?").Bind(id).Run();
        database.Prepared("DELETE FROM original WHERE id = ?").Bind(arrival.id).Run();
        return id;
    }
    const ResultFacts facts = FactsOf(content.text);
    database
        .Prepared(
            "INSERT INTO result (id, serial, digest, received, kind, patient, panel, measured) "
            "VALUES (?, ?, ?, ?, ?, ?, ?, ?)")
        .Bind(arrival.id, content.serial, digest, content.received, facts.kind, facts.patient, facts.panel,
              facts.measured)
        .Run();
    Queue(database, arrival.id, content, facts.kind);
    return arrival.id;
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
    for (const std::int64_t result : filing) {
        const Arrival arrival = std::move(arrivals_.front());
        arrivals_.pop_front();
        arrivedBytes_ -= arrival.content->Memory();
        const bool again = result != arrival.id;
        if (again) {
            const std::lock_guard lock(mutex_);
            --health_.stored;
            ++health_.repeated;
        }
        if (stored_) {
            stored_(result, arrival.content->serial, again);
        }
    }
}

}  // namespace ZELPC
