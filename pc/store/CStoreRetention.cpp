// What was delivered long ago.
#include <memory>
#include <vector>

#include "store/CStore.h"

namespace ZELPC {

namespace {

constexpr int kLookedAtAtOnce = 200;  // new results wait meanwhile

struct Candidate {
    std::int64_t result;
    std::int64_t received;
};

std::vector<Candidate> NextResults(CDatabase& database, std::int64_t after) {
    CStatement& find = database.Prepared("SELECT id, received FROM result WHERE id > ? ORDER BY id LIMIT ?");
    find.Bind(after, kLookedAtAtOnce);
    std::vector<Candidate> results;
    while (find.Step()) {
        results.push_back({find.Int(0), find.Int(1)});
    }
    return results;
}

bool MayGo(CDatabase& database, std::int64_t result, std::int64_t before) {
    CStatement& look = database.Prepared(
        "SELECT coalesce(max(state = 2), 0) AND NOT max(state IN (0, 1) OR changed >= ?2) FROM delivery WHERE result = "
        "?1");
    look.Bind(result, before).Step();
    const bool mayGo = look.Int(0) != 0;
    look.Reset();
    return mayGo;
}

}  // namespace

bool CStore::RemoveSome(CDatabase& database, std::int64_t before, std::int64_t& removed) {
    const std::vector<Candidate> results = NextResults(database, lookedAt_);
    for (const auto& [result, received] : results) {
        if (received < before && MayGo(database, result, before)) {
            database.Prepared("DELETE FROM delivery WHERE result = ?").Bind(result).Run();
            database.Prepared("DELETE FROM result WHERE id = ?").Bind(result).Run();
            database.Prepared("DELETE FROM original WHERE id = ?").Bind(result).Run();
            ++removed;
        }
    }
    const bool more = results.size() == kLookedAtAtOnce;
    lookedAt_ = more ? results.back().result : 0;
    return more;
}

void CStore::RemoveOld(std::int64_t before, std::function<void(bool more)> done) {
    struct Outcome {
        std::int64_t removed = 0;
        bool more = false;
    };
    const auto outcome = std::make_shared<Outcome>();
    writer_->Submit([this, before,
                     outcome](CDatabase& database) { outcome->more = RemoveSome(database, before, outcome->removed); },
                    [this, outcome, done = std::move(done)](const std::string* error) {
                        if (error == nullptr) {
                            const std::lock_guard lock(mutex_);
                            health_.removed += outcome->removed;
                        }
                        done(error == nullptr && outcome->more);
                    });
}

}  // namespace ZELPC
