#include "gateway/CGateway.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <boost/asio/as_tuple.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/use_awaitable.hpp>

#include "base/Clock.h"
#include "deliver/MakeDestination.h"
#include "gateway/Json.h"

namespace ZELPC {

namespace {

constexpr auto kScanTime = std::chrono::seconds(3);
constexpr auto kLookEvery = std::chrono::seconds(2);
constexpr auto kRestBetweenRounds = std::chrono::hours(1);
constexpr auto kLookAtEnd = std::chrono::milliseconds(10);
constexpr std::size_t kMostAnalyzers = 4096;  // a network that invents analyzers must not fill the memory

std::vector<StoreDestination> StoreDestinations(const GatewayConfig& config) {
    std::vector<StoreDestination> destinations;
    for (const DestinationOptions& destination : config.destinations) {
        destinations.push_back({destination.name, destination.kind});
    }
    return destinations;
}

}  // namespace

CGateway::CGateway(asio::any_io_executor executor, asio::io_context& network, const GatewayConfig& config)
    : executor_(std::move(executor)),
      config_(config),
      store_(config.store),
      reader_(config.store.path),
      hub_(network, config.pc),
      findAgain_(executor_),
      lookAgain_(executor_),
      alarms_(config.alarmCommand) {
    for (const DestinationOptions& destination : config.destinations) {
        queues_.push_back(std::make_shared<CDeliveryQueue>(
            executor_, store_, destination,
            [destination](const asio::any_io_executor& strand) { return MakeDestination(strand, destination); }));
    }
    store_.OnStored([this](std::int64_t result, const std::string& serial, bool again) {
        if (again) {
            spdlog::info("{}: result {} came again", serial, result);
        }
        if (again || Stopping()) {
            return;  // it is known, or is delivered after the next start
        }
        if (events_.HasListeners()) {
            events_.Publish("result", Dump({{"id", result}, {"serial", serial}}));
        }
        for (const auto& queue : queues_) {
            queue->Wake(serial);
        }
    });
    store_.SetDestinations(StoreDestinations(config));
}

void CGateway::Start() {
    for (const auto& queue : queues_) {
        queue->Start();
    }
    for (const LinkSettings& analyzer : config_.analyzers) {
        Hold(analyzer);
    }
    asio::co_spawn(executor_, Monitor(), asio::detached);
    if (config_.scan.enabled) {
        asio::co_spawn(executor_, Seek(), asio::detached);
    }
}

asio::awaitable<void> CGateway::Stop() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
        findAgain_.cancel();
        lookAgain_.cancel();
    }
    alarms_.Stop();
    hub_.Stop();
    const auto left = std::make_shared<std::atomic<std::size_t>>(queues_.size());
    for (const auto& queue : queues_) {
        asio::co_spawn(executor_, queue->Stop(), [left](const std::exception_ptr&) { --*left; });
    }
    asio::steady_timer look(executor_);
    while (*left > 0) {
        look.expires_after(kLookAtEnd);
        co_await look.async_wait(asio::as_tuple(asio::use_awaitable));
    }
}

bool CGateway::Stopping() const {
    const std::lock_guard lock(mutex_);
    return stopping_;
}

std::vector<CGateway::Held> CGateway::Analyzers() const {
    const std::lock_guard lock(mutex_);
    return held_;
}

asio::awaitable<void> CGateway::Seek() {
    const std::function<void(const ScanAnswer&)> found = [this](const ScanAnswer& answer) { Found(answer); };
    for (;;) {
        try {
            co_await hub_.Scan(config_.scan.targets, kScanTime, found);
        } catch (const std::exception& error) {
            if (!Stopping()) {
                spdlog::warn("no scan: {}", error.what());
            }
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
    auto analyzer = std::make_shared<CAnalyzer>(store_, settings, [this](const CAnalyzer& changed) {
        if (events_.HasListeners()) {
            events_.Publish("analyzer", Dump(ToJson(changed.View())));
        }
    });
    auto link = hub_.Hold(std::move(settings), analyzer);
    const std::lock_guard lock(mutex_);
    held_.push_back({std::move(analyzer), std::move(link)});
}

std::optional<DeliveryStatus> CGateway::QueueStatus(const std::string& destination) const {
    for (const auto& queue : queues_) {
        if (queue->Options().name == destination) {
            return queue->Status();
        }
    }
    return std::nullopt;
}

std::optional<CGateway::Held> CGateway::Find(const std::string& serial) const {
    for (const Held& held : Analyzers()) {
        if (held.analyzer->View().status.serial == serial) {
            return held;
        }
    }
    return std::nullopt;
}

/// Looks every few seconds how everything is.
asio::awaitable<void> CGateway::Monitor() {
    for (;;) {
        try {
            if (!store_.Health().problem.empty()) {
                store_.Probe();
            }
            RemoveOldResults();
            alarms_.Update(FindAlarms());
            events_.Publish("queue", "{}");
        } catch (const std::exception& error) {
            spdlog::error("the store cannot be read: {}", error.what());
        }
        {
            const std::lock_guard lock(mutex_);
            if (stopping_) {
                co_return;
            }
            lookAgain_.expires_after(kLookEvery);
        }
        co_await lookAgain_.async_wait(asio::as_tuple(asio::use_awaitable));
    }
}

/// One step; the next one comes with the next look, and the next round an hour after the last one.
void CGateway::RemoveOldResults() {
    using Clock = std::chrono::steady_clock;
    if (config_.store.keepDays == 0 || Clock::now() < removeAgain_.load()) {
        return;
    }
    removeAgain_ = Clock::time_point::max();
    constexpr std::int64_t kMillisecondsADay = 86'400'000;
    store_.RemoveOld(NowMilliseconds() - config_.store.keepDays * kMillisecondsADay, [this](bool more) {
        removeAgain_ = more ? Clock::time_point::min() : Clock::now() + kRestBetweenRounds;
    });
}

std::vector<Alarm> CGateway::FindAlarms() {
    std::vector<Alarm> alarms;
    if (const std::string problem = store_.Health().problem; !problem.empty()) {
        alarms.push_back({"store", "", "results cannot be stored and are not acknowledged: " + problem, 0});
    }
    for (const QueueCount& count : reader_.Queues()) {
        const std::string& name = count.destination;
        if (count.held > 0) {
            alarms.push_back({"held", name, fmt::format("{}: held until somebody decides: {}", name, count.held), 0});
        }
        for (const auto& queue : queues_) {
            const DestinationOptions& options = queue->Options();
            const std::int64_t longAgo = NowMilliseconds() - options.alarmAfter.count() * 1000;
            const DeliveryStatus status = queue->Status();
            if (options.name == name && !status.problem.empty() && status.since < longAgo) {
                alarms.push_back({"down", name, name + ": nothing gets through: " + status.problem, 0});
            }
            if (options.name == name &&
                (count.waiting > options.alarmBacklog || (count.oldest != 0 && count.oldest < longAgo))) {
                alarms.push_back({"behind", name,
                                  fmt::format("{}: it falls behind, results that wait: {}", name, count.waiting), 0});
            }
        }
    }
    return alarms;
}

}  // namespace ZELPC
