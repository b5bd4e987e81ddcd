#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "store/CDatabase.h"
#include "store/Records.h"

namespace ZELPC {

/// Reads a store beside its writer, on a connection of its own. Any thread may call; a call that takes longer than a
/// few seconds throws CDatabaseError.
class CStoreReader {
public:
    explicit CStoreReader(const std::string& path);

    /// Newest first.
    std::vector<StoredResult> Results(const ResultFilter& filter);
    /// With its text.
    std::optional<StoredResult> Result(std::int64_t id);
    std::vector<AsideText> Aside(int limit);

    /// The analyzers for which something waits.
    std::vector<std::string> WaitingSerials(const std::string& destination);
    /// Whether something of this analyzer is held.
    bool IsHeld(const std::string& destination, const std::string& serial);
    /// What waits for one destination from one analyzer, the oldest first, with texts.
    std::vector<Delivery> Waiting(const std::string& destination, const std::string& serial, int limit,
                                  std::int64_t after = 0);

    std::vector<QueueCount> Queues();
    /// Deliveries in one state, the oldest first, without texts.
    std::vector<Delivery> Deliveries(const std::string& destination, DeliveryState state, int limit);
    /// Where a result went.
    std::vector<Delivery> DeliveriesOf(std::int64_t result);
    std::optional<Delivery> FindDelivery(std::int64_t id);

private:
    std::mutex mutex_;
    CDatabase database_;
};

}  // namespace ZELPC
