#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <memory>
#include <mutex>
#include <vector>

#include "deliver/CDeliveryQueue.h"
#include "gateway/CAnalyzer.h"
#include "gateway/GatewayConfig.h"
#include "link/CLinkHub.h"
#include "store/CStore.h"
#include "store/CStoreReader.h"

namespace ZELPC {

/// The gateway: holds analyzers, keeps their results and brings them to their destinations.
class CGateway {
public:
    /// Opens store, destinations and the UDP port; throws std::exception with the reason when one cannot be had.
    CGateway(asio::io_context& context, const GatewayConfig& config);

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

private:
    asio::awaitable<void> Find();
    void Found(const ScanAnswer& answer);
    void Hold(LinkSettings settings);
    bool IsHeld(const ScanAnswer& answer) const;

    asio::io_context& context_;
    const GatewayConfig config_;
    CStore store_;
    CStoreReader reader_;
    std::vector<std::shared_ptr<CDeliveryQueue>> queues_;
    CLinkHub hub_;
    mutable std::mutex mutex_;
    std::vector<Held> held_;
    asio::steady_timer findAgain_;
    bool stopping_ = false;  // under mutex_
};

}  // namespace ZELPC
