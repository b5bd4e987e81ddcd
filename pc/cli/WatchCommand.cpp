#include <boost/asio/steady_timer.hpp>
#include <boost/asio/this_coro.hpp>

#include "cli/CRunner.h"
#include "cli/CWatch.h"
#include "cli/Commands.h"
#include "cli/ExitStatus.h"
#include "cli/GatewayWork.h"
#include "cli/Output.h"
#include "cli/Password.h"
#include "link/NoThrow.h"

namespace ZELPC {

namespace asio = boost::asio;

int RunWatch(const WatchOptions& options) {
    if (!options.gateway.at.empty()) {
        return WatchThroughGateway(options);
    }
    CRunner runner;
    // The last to go are results that the disk still works on; they speak to the runner's loop.
    asio::thread_pool disk(1);
    std::optional<CResultFolder> folder;
    const int status = runner.Run(options.network, [&](CLinkHub& hub) -> asio::awaitable<int> {
        if (!options.save.empty()) {
            folder.emplace(options.save);
        }
        const std::string password = ReadPassword(options.password, options.hosts.front());
        std::vector<std::shared_ptr<CWatch>> watches;
        std::size_t stopped = 0;
        int result = kDone;
        asio::steady_timer ended(runner.Context(), asio::steady_timer::time_point::max());
        const WatchSetting setting{options.json, &runner.Context(), &disk, folder ? &*folder : nullptr,
                                   [&](Refusal refusal) {
                                       result = refusal != Refusal::kNone ? kRefused : result;
                                       ++stopped;
                                       ended.cancel();
                                   }};
        for (const std::string& host : options.hosts) {
            LinkSettings analyzer;
            analyzer.address = Resolve(host);
            analyzer.password = password;
            analyzer.takeOver = options.takeOver;
            watches.push_back(std::make_shared<CWatch>(host, setting));
            watches.back()->Begin(hub.Hold(analyzer, watches.back()));
        }
        runner.OnInterrupt([&] {
            for (const auto& watch : watches) {
                watch->End();
            }
        });
        while (stopped < watches.size()) {
            co_await ended.async_wait(kNoThrow);
        }
        co_return result;
    });
    disk.join();
    return status;
}

}  // namespace ZELPC
