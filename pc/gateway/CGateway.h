#pragma once

#include <atomic>
#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "deliver/CDeliveryQueue.h"
#include "gateway/CAlarms.h"
#include "gateway/CAnalyzer.h"
#include "gateway/GatewayConfig.h"
#include "link/CLinkHub.h"
#include "store/CStore.h"
#include "store/CStoreReader.h"
#include "web/CEventHub.h"

namespace ZELPC {

/// The gateway: holds analyzers, keeps their results and brings them to their destinations.
class CGateway {
public:
    /// Opens store, destinations and the UDP port; throws std::exception with the reason when one cannot be had.
    /// `network` serves the analyzers, and nothing else, so that no acknowledgement waits for a page or a delivery; all
    /// else is done by `executor`.
    CGateway(asio::any_io_executor executor, asio::io_context& network, const GatewayConfig& config);

    ~CGateway() { store_.Close(); }  // what it still writes tells the rest, which must be there
    CGateway(const CGateway&) = delete;
    CGateway& operator=(const CGateway&) = delete;

    /// Begins everything.
    void Start();
    /// Ends everything in order: no new results, then no new deliveries; returns when all is at rest.
    asio::awaitable<void> Stop();

    struct Held {
        std::shared_ptr<CAnalyzer> analyzer;
        std::shared_ptr<IAnalyzerLink> link;
    };
    std::vector<Held> Analyzers() const;
    const std::vector<std::shared_ptr<CDeliveryQueue>>& Queues() const { return queues_; }
    CStore& Store() { return store_; }
    CStoreReader& Reader() { return reader_; }
    const GatewayConfig& Config() const { return config_; }
    const CAlarms& Alarms() const { return alarms_; }
    CEventHub& Events() { return events_; }
    const asio::any_io_executor& Executor() const { return executor_; }

    /// How the way to a destination is; nothing when it is not configured any more.
    std::optional<DeliveryStatus> QueueStatus(const std::string& destination) const;
    /// The analyzer with this serial number.
    std::optional<Held> Find(const std::string& serial) const;

private:
    asio::awaitable<void> Monitor();
    void RemoveOldResults();
    std::vector<Alarm> FindAlarms();
    asio::awaitable<void> Seek();
    void Found(const ScanAnswer& answer);
    void Hold(LinkSettings settings);
    bool IsHeld(const ScanAnswer& answer) const;
    bool Stopping() const;

    const asio::any_io_executor executor_;
    const GatewayConfig config_;
    CStore store_;
    CStoreReader reader_;
    std::vector<std::shared_ptr<CDeliveryQueue>> queues_;
    CLinkHub hub_;
    mutable std::mutex mutex_;
    std::vector<Held> held_;
    asio::steady_timer findAgain_;
    asio::steady_timer lookAgain_;
    bool stopping_ = false;  // under mutex_
    // When results that were kept long enough are looked for again; no time while that is under way.
    std::atomic<std::chrono::steady_clock::time_point> removeAgain_{};
    CEventHub events_;
    CAlarms alarms_;
};

}  // namespace ZELPC
