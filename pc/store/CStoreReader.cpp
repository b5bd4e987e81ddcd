#include "store/CStoreReader.h"

#include <fmt/format.h>

#include "store/ResultQuery.h"

namespace ZELPC {

namespace {

constexpr int kLongestQuery = 5000;  // milliseconds

constexpr char kDeliveries[] =
    "SELECT d.id, d.result, d.serial, d.state, d.attempts, d.reason, d.queued, d.changed, n.name, r.patient, "
    "r.received "
    "FROM delivery d JOIN destination n ON n.id = d.destination JOIN result r ON r.id = d.result WHERE {}";

Delivery DeliveryAt(const CStatement& row) {
    Delivery delivery;
    delivery.id = row.Int(0);
    delivery.result = row.Int(1);
    delivery.serial = row.Text(2);
    delivery.state = static_cast<DeliveryState>(row.Int(3));
    delivery.attempts = row.Int(4);
    delivery.reason = row.Text(5);
    delivery.queued = row.Int(6);
    delivery.changed = row.Int(7);
    delivery.destination = row.Text(8);
    delivery.patient = row.Text(9);
    delivery.received = row.Int(10);
    return delivery;
}

StoredResult ResultAt(const CStatement& row) {
    return {row.Int(0), row.Text(1), row.Int(2), {row.Text(3), row.Text(4), row.Text(5), row.Text(6)}, row.Int(7), {}};
}

std::vector<Delivery> DeliveriesFrom(CStatement& statement) {
    std::vector<Delivery> deliveries;
    while (statement.Step()) {
        deliveries.push_back(DeliveryAt(statement));
    }
    return deliveries;
}

constexpr char kResultColumns[] = "id, serial, received, kind, patient, panel, measured, repeats";

}  // namespace

CStoreReader::CStoreReader(const std::string& path) : database_(path, CDatabase::Access::kRead) {}

std::vector<StoredResult> CStoreReader::Results(const ResultFilter& filter) {
    const std::lock_guard lock(mutex_);
    database_.LimitTime(kLongestQuery);
    CStatement rows =
        ResultQuery(database_, kResultColumns, filter, "ORDER BY id DESC LIMIT " + std::to_string(filter.limit));
    std::vector<StoredResult> results;
    while (rows.Step()) {
        results.push_back(ResultAt(rows));
    }
    return results;
}

std::optional<StoredResult> CStoreReader::Result(std::int64_t id) {
    const std::lock_guard lock(mutex_);
    database_.LimitTime(kLongestQuery);
    CStatement& row = database_
                          .Prepared(
                              "SELECT id, r.serial, r.received, kind, patient, panel, measured, repeats, text "
                              "FROM result r JOIN original USING (id) WHERE id = ?")
                          .Bind(id);
    std::optional<StoredResult> result;
    if (row.Step()) {
        result = ResultAt(row);
        result->text = row.Text(8);
    }
    row.Reset();
    return result;
}

std::vector<AsideText> CStoreReader::Aside(int limit) {
    const std::lock_guard lock(mutex_);
    database_.LimitTime(kLongestQuery);
    CStatement& rows = database_
                           .Prepared(
                               "SELECT id, serial, received, times, reason, text FROM aside "
                               "ORDER BY received DESC LIMIT ?")
                           .Bind(limit);
    std::vector<AsideText> texts;
    while (rows.Step()) {
        texts.push_back({rows.Int(0), rows.Text(1), rows.Int(2), rows.Int(3), rows.Text(4), rows.Text(5)});
    }
    return texts;
}

std::vector<std::string> CStoreReader::WaitingSerials(const std::string& destination) {
    const std::lock_guard lock(mutex_);
    database_.LimitTime(kLongestQuery);
    CStatement& rows = database_
                           .Prepared(
                               "SELECT DISTINCT serial FROM delivery WHERE state = 0 AND "
                               "destination = (SELECT id FROM destination WHERE name = ?)")
                           .Bind(destination);
    std::vector<std::string> serials;
    while (rows.Step()) {
        serials.push_back(rows.Text(0));
    }
    return serials;
}

bool CStoreReader::IsHeld(const std::string& destination, const std::string& serial) {
    const std::lock_guard lock(mutex_);
    database_.LimitTime(kLongestQuery);
    CStatement& row = database_
                          .Prepared(
                              "SELECT 1 FROM delivery WHERE state = 1 AND serial = ?2 AND "
                              "destination = (SELECT id FROM destination WHERE name = ?1) LIMIT 1")
                          .Bind(destination, serial);
    const bool held = row.Step();
    row.Reset();
    return held;
}

std::vector<Delivery> CStoreReader::Waiting(const std::string& destination, const std::string& serial, int limit,
                                            std::int64_t after) {
    const std::lock_guard lock(mutex_);
    database_.LimitTime(kLongestQuery);
    CStatement& rows = database_
                           .Prepared(
                               "SELECT d.id, d.result, d.attempts, o.text, o.received FROM delivery d "
                               "JOIN original o ON o.id = d.result WHERE d.state = 0 AND d.serial = ?2 AND "
                               "d.destination = (SELECT id FROM destination WHERE name = ?1) AND d.id > ?3 "
                               "ORDER BY d.id LIMIT ?4")
                           .Bind(destination, serial, after, limit);
    std::vector<Delivery> deliveries;
    while (rows.Step()) {
        Delivery delivery;
        delivery.id = rows.Int(0);
        delivery.result = rows.Int(1);
        delivery.serial = serial;
        delivery.attempts = rows.Int(2);
        delivery.destination = destination;
        delivery.text = rows.Text(3);
        delivery.received = rows.Int(4);
        deliveries.push_back(std::move(delivery));
    }
    return deliveries;
}

std::vector<QueueCount> CStoreReader::Queues() {
    const std::lock_guard lock(mutex_);
    database_.LimitTime(kLongestQuery);
    CStatement& rows = database_
                           .Prepared(
                               "SELECT name, (SELECT count(*) FROM delivery WHERE destination = n.id AND state = 0), "
                               "(SELECT count(*) FROM delivery WHERE destination = n.id AND state = 1), "
                               "(SELECT min(queued) FROM delivery WHERE destination = n.id AND state = 0) "
                               "FROM destination n ORDER BY name")
                           .Bind();
    std::vector<QueueCount> queues;
    while (rows.Step()) {
        queues.push_back({rows.Text(0), rows.Int(1), rows.Int(2), rows.Int(3)});
    }
    return queues;
}

std::vector<Delivery> CStoreReader::Deliveries(const std::string& destination, DeliveryState state, int limit) {
    const std::lock_guard lock(mutex_);
    database_.LimitTime(kLongestQuery);
    // The state stands in the text, because an index with a condition serves only a condition that is known beforehand.
    CStatement rows = database_.Prepare(
        fmt::format(kDeliveries, fmt::format("d.state = {} AND d.destination = (SELECT id FROM destination "
                                             "WHERE name = ?1) ORDER BY d.id LIMIT ?2",
                                             static_cast<int>(state))));
    return DeliveriesFrom(rows.Bind(destination, limit));
}

std::vector<Delivery> CStoreReader::DeliveriesOf(std::int64_t result) {
    const std::lock_guard lock(mutex_);
    database_.LimitTime(kLongestQuery);
    CStatement rows = database_.Prepare(fmt::format(kDeliveries, "d.result = ? ORDER BY d.id"));
    return DeliveriesFrom(rows.Bind(result));
}

std::optional<Delivery> CStoreReader::FindDelivery(std::int64_t id) {
    const std::lock_guard lock(mutex_);
    database_.LimitTime(kLongestQuery);
    CStatement rows = database_.Prepare(fmt::format(kDeliveries, "d.id = ?"));
    const std::vector<Delivery> found = DeliveriesFrom(rows.Bind(id));
    return found.empty() ? std::nullopt : std::optional(found.front());
}

}  // namespace ZELPC
