#include <memory>

#include "base/Clock.h"
#include "store/CStore.h"
#include "store/ResultQuery.h"

namespace ZELPC {

namespace {

constexpr char kRevive[] =
    "UPDATE delivery SET state = 0, attempts = 0, reason = '', changed = ?2 WHERE id = ?1 AND state IN (1, 3)";

void QueueAgain(CDatabase& database, std::int64_t destination, std::int64_t result) {
    database
        .Prepared(
            "INSERT INTO delivery (destination, result, serial, queued, changed) "
            "SELECT ?1, id, serial, ?3, ?3 FROM result WHERE id = ?2")
        .Bind(destination, result, NowMilliseconds())
        .Run();
}

/// Whether the result was put on its way: not when it waits already.
bool ReviveOrQueue(CDatabase& database, std::int64_t destination, std::int64_t result) {
    CStatement& last = database
                           .Prepared(
                               "SELECT id, state FROM delivery WHERE result = ? AND destination = ? "
                               "ORDER BY id DESC LIMIT 1")
                           .Bind(result, destination);
    const bool known = last.Step();
    const std::int64_t id = known ? last.Int(0) : 0;
    const auto state = known ? static_cast<DeliveryState>(last.Int(1)) : DeliveryState::kDelivered;
    last.Reset();
    if (state == DeliveryState::kWaiting) {
        return false;
    }
    if (state == DeliveryState::kDelivered) {
        QueueAgain(database, destination, result);
    } else {
        database.Prepared(kRevive).Bind(id, NowMilliseconds()).Run();
    }
    return true;
}

std::int64_t DestinationId(CDatabase& database, const std::string& name) {
    CStatement& find = database.Prepared("SELECT id FROM destination WHERE name = ?").Bind(name);
    if (!find.Step()) {
        throw std::runtime_error("there is no destination " + name);
    }
    const std::int64_t id = find.Int(0);
    find.Reset();
    return id;
}

std::int64_t QueueAll(CDatabase& database, const std::string& destination, const ResultFilter& filter) {
    const std::int64_t target = DestinationId(database, destination);
    std::vector<std::int64_t> results;
    CStatement find = ResultQuery(database, "id", filter, "ORDER BY id");
    while (find.Step()) {
        results.push_back(find.Int(0));
    }
    std::int64_t count = 0;
    for (const std::int64_t result : results) {
        count += ReviveOrQueue(database, target, result) ? 1 : 0;
    }
    return count;
}

std::int64_t QueueOne(CDatabase& database, std::int64_t delivery) {
    CStatement& find = database.Prepared("SELECT destination, result FROM delivery WHERE id = ?").Bind(delivery);
    if (!find.Step()) {
        return 0;
    }
    const std::int64_t destination = find.Int(0);
    const std::int64_t result = find.Int(1);
    find.Reset();
    return ReviveOrQueue(database, destination, result) ? 1 : 0;
}

void SubmitCounted(CWriter& writer, std::function<std::int64_t(CDatabase&)> work, CStore::CountDone done) {
    const auto count = std::make_shared<std::int64_t>(0);
    writer.Submit([count, work = std::move(work)](CDatabase& database) { *count = work(database); },
                  [count, done = std::move(done)](const std::string* error) { done(*count, error); });
}

}  // namespace

void CStore::Again(std::string destination, ResultFilter filter, CountDone done) {
    SubmitCounted(
        *writer_,
        [destination = std::move(destination), filter = std::move(filter)](CDatabase& database) {
            return QueueAll(database, destination, filter);
        },
        std::move(done));
}

void CStore::AgainOne(std::int64_t delivery, CountDone done) {
    SubmitCounted(
        *writer_, [delivery](CDatabase& database) { return QueueOne(database, delivery); }, std::move(done));
}

void CStore::Drop(std::int64_t delivery, CountDone done) {
    SubmitCounted(
        *writer_,
        [delivery](CDatabase& database) {
            database.Prepared("UPDATE delivery SET state = 3, changed = ?2 WHERE id = ?1 AND state IN (0, 1)")
                .Bind(delivery, NowMilliseconds())
                .Run();
            return database.Changes();
        },
        std::move(done));
}

}  // namespace ZELPC
