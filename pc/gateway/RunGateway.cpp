#include "gateway/RunGateway.h"

#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>
#include <sys/stat.h>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <csignal>
#include <filesystem>
#include <thread>
#include <vector>

#include "gateway/CGateway.h"

namespace ZELPC {

namespace {

void SetUpLog(const std::string& level) {
    auto log = std::make_shared<spdlog::logger>("zelpc", std::make_shared<spdlog::sinks::stderr_sink_mt>());
    log->set_pattern("%Y-%m-%d %H:%M:%S.%e %l %v");
    log->set_level(spdlog::level::from_str(level));
    log->flush_on(spdlog::level::trace);
    spdlog::set_default_logger(std::move(log));
}

/// The folders that the configuration names. Results are nobody else's business.
void MakeFolders(const GatewayConfig& config) {
    ::umask(0027);
    std::filesystem::create_directories(std::filesystem::path(config.store.path).parent_path());
    for (const DestinationOptions& destination : config.destinations) {
        if (destination.type == DestinationType::kDirectory) {
            std::filesystem::create_directories(destination.directory);
        }
    }
}

asio::awaitable<void> Serve(CGateway& gateway) {
    asio::signal_set signals(co_await asio::this_coro::executor, SIGTERM, SIGINT);
    gateway.Start();
    spdlog::info("the gateway runs");
    const int number = co_await signals.async_wait(asio::use_awaitable);
    spdlog::info("signal {}: ending", number);
    co_await gateway.Stop();
}

}  // namespace

int RunGateway(const GatewayConfig& config) {
    std::signal(SIGPIPE, SIG_IGN);
    SetUpLog(config.logLevel);
    MakeFolders(config);
    asio::io_context context(config.threads);
    CGateway gateway(context, config);
    asio::co_spawn(context, Serve(gateway), asio::detached);
    std::vector<std::thread> pool;
    for (int count = 1; count < config.threads; ++count) {
        pool.emplace_back([&context] { context.run(); });
    }
    context.run();
    for (std::thread& thread : pool) {
        thread.join();
    }
    spdlog::info("ended");
    return 0;
}

}  // namespace ZELPC
