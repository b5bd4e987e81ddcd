#include "gateway/CGateway.h"

#include <spdlog/spdlog.h>

#include <algorithm>
#include <boost/asio/as_tuple.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/use_awaitable.hpp>

#include "deliver/MakeDestination.h"

namespace ZELPC {

namespace {

constexpr auto kScanTime = std::chrono::seconds(3);
constexpr std::size_t kMostAnalyzers = 4096;  // a network that invents analyzers must not fill the memory

std::vector<StoreDestination> StoreDestinations(const GatewayConfig& config) {
    std::vector<StoreDestination> destinations;
    for (const DestinationOptions& destination : config.destinations) {
        destinations.push_back({destination.name, destination.kind});
    }
    return destinations;
}

}  // namespace

CGateway::CGateway(asio::io_context& context, const GatewayConfig& config)
    : context_(context),
      config_(config),
      store_(config.store),
      reader_(config.store.path),
      hub_(context, config.pc),
      findAgain_(context) {
    store_.SetDestinations(StoreDestinations(config));
    for (const DestinationOptions& destination : config.destinations) {
        queues_.push_back(std::make_shared<CDeliveryQueue>(
            context.get_executor(), store_, destination,
            [destination](const asio::any_io_executor& executor) { return MakeDestination(executor, destination); }));
    }
    store_.OnStored([this](std::int64_t, const std::string& serial) {
        for (const auto& queue : queues_) {
            queue->Wake(serial);
        }
    });
}

void CGateway::Start() {
    for (const auto& queue : queues_) {
        queue->Start();
    }
    for (const LinkSettings& analyzer : config_.analyzers) {
        Hold(analyzer);
    }
    if (config_.scan.enabled) {
        asio::co_spawn(context_, Find(), asio::detached);
    }
}

asio::awaitable<void> CGateway::Stop() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    findAgain_.cancel();
    hub_.Stop();
    for (const auto& queue : queues_) {
        co_await queue->Stop();
    }
}

std::vector<CGateway::Held> CGateway::Analyzers() const {
    const std::lock_guard lock(mutex_);
    return held_;
}

asio::awaitable<void> CGateway::Find() {
    const std::function<void(const ScanAnswer&)> found = [this](const ScanAnswer& answer) { Found(answer); };
    for (;;) {
        try {
            co_await hub_.Scan(config_.scan.targets, kScanTime, found);
        } catch (const std::exception& error) {
            spdlog::warn("no scan: {}", error.what());
        }
        {
            const std::lock_guard lock(mutex_);
            if (stopping_) {
                co_return;
            }
            findAgain_.expires_after(config_.scan.every);
        }
        co_await findAgain_.async_wait(asio::as_tuple(asio::use_awaitable));
    }
}

void CGateway::Found(const ScanAnswer& answer) {
    if (IsHeld(answer)) {
        return;
    }
    spdlog::info("found {} ({}) at {}", answer.serial, answer.model, DottedAddress(answer.address));
    LinkSettings settings;
    settings.address = boost::asio::ip::address_v4(answer.address);
    settings.serial = answer.serial;
    settings.password = config_.scan.password;
    settings.takeOver = config_.scan.takeOver;
    Hold(std::move(settings));
}

/// Whether this analyzer is one of ours, by its number, or by its address while it has not told its number.
bool CGateway::IsHeld(const ScanAnswer& answer) const {
    const std::vector<Held> held = Analyzers();
    return held.size() >= kMostAnalyzers || std::ranges::any_of(held, [&answer](const Held& one) {
               const LinkStatus status = one.analyzer->View().status;
               return status.serial == answer.serial ||
                      (status.serial.empty() && status.address.to_uint() == answer.address);
           });
}

void CGateway::Hold(LinkSettings settings) {
    auto analyzer = std::make_shared<CAnalyzer>(store_, settings, [] {});
    auto link = hub_.Hold(std::move(settings), analyzer);
    const std::lock_guard lock(mutex_);
    held_.push_back({std::move(analyzer), std::move(link)});
}

}  // namespace ZELPC
