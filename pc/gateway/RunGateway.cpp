#include "gateway/RunGateway.h"

#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>
#include <sys/stat.h>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/thread_pool.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <csignal>
#include <filesystem>
#include <memory>

#include "gateway/CApi.h"
#include "gateway/CGateway.h"
#include "gateway/CLastResort.h"
#include "gateway/CPages.h"
#include "gateway/Token.h"
#include "web/CHttpServer.h"

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

/// The page and the API, while this object lives.
class CWeb {
public:
    explicit CWeb(CGateway& gateway)
        : access_(asio::ip::make_address(gateway.Config().web.address), TokenOf(gateway.Config()),
                  gateway.Config().web.hosts),
          api_(gateway),
          pages_(gateway, access_.Guard(), access_.HasToken()) {
        CRoutes routes;
        api_.AddTo(routes);
        pages_.AddTo(routes);
        const asio::ip::tcp::endpoint endpoint(asio::ip::make_address(gateway.Config().web.address),
                                               gateway.Config().web.port);
        server_ =
            std::make_shared<CHttpServer>(gateway.Executor(), endpoint, access_, std::move(routes), gateway.Events());
    }

    void Start() {
        server_->Start();
        const auto endpoint = server_->Endpoint();
        const std::string address =
            endpoint.address().is_v6() ? "[" + endpoint.address().to_string() + "]" : endpoint.address().to_string();
        spdlog::info("the page is http://{}:{}/", address, endpoint.port());
    }
    void Stop() { server_->Stop(); }

private:
    const CAccess access_;
    const CApi api_;
    const CPages pages_;
    std::shared_ptr<CHttpServer> server_;
};

asio::awaitable<void> Serve(CGateway& gateway, CWeb* web, CLastResort& lastResort) {
    asio::signal_set signals(co_await asio::this_coro::executor, SIGTERM, SIGINT);
    gateway.Start();
    if (web != nullptr) {
        web->Start();
    }
    spdlog::info("the gateway runs");
    const int number = co_await signals.async_wait(asio::use_awaitable);
    spdlog::info("signal {}: ending", number);
    lastResort.Begin();
    if (web != nullptr) {
        web->Stop();
    }
    co_await gateway.Stop();
}

}  // namespace

int RunGateway(const GatewayConfig& config) {
    std::signal(SIGPIPE, SIG_IGN);
    SetUpLog(config.logLevel);
    MakeFolders(config);
    CLastResort lastResort;  // outlives everything that may hang
    asio::io_context network(1);
    asio::thread_pool pool(static_cast<std::size_t>(config.threads));
    CGateway gateway(pool.get_executor(), network, config);
    const std::unique_ptr<CWeb> web = config.web.enabled ? std::make_unique<CWeb>(gateway) : nullptr;
    asio::co_spawn(pool, Serve(gateway, web.get(), lastResort), asio::detached);
    network.run();
    pool.join();
    spdlog::info("ended");
    return 0;
}

}  // namespace ZELPC
