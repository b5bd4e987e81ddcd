#include <boost/asio/this_coro.hpp>
#include <nlohmann/json.hpp>

#include "cli/CRunner.h"
#include "cli/Commands.h"
#include "cli/ExitStatus.h"
#include "cli/InfoText.h"
#include "cli/Output.h"

namespace ZELPC {

namespace asio = boost::asio;
using nlohmann::json;

namespace {

// As wide as the protocol's fields, since the rows are written as the answers come.
std::string Row(const std::string& serial, const std::string& model, const std::string& address,
                const std::string& state) {
    return Pad(serial, 17) + Pad(model, 10) + Pad(address, 17) + state;
}

std::string StateOf(const ScanAnswer& answer) {
    if (answer.pcAddress == 0) {
        return answer.busy ? "busy" : "free";
    }
    return (answer.busy ? "taken by " : "left by ") + PCText({answer.pcAddress, answer.pcName});
}

void Show(const ScanAnswer& answer, bool asJson) {
    if (!asJson) {
        PrintLine(Row(answer.serial, answer.model, DottedAddress(answer.address), StateOf(answer)));
        return;
    }
    json line = {{"event", "analyzer"},        {"serial", answer.serial},
                 {"model", answer.model},      {"address", DottedAddress(answer.address)},
                 {"tcp_port", answer.tcpPort}, {"busy", answer.busy}};
    line["pc"] = answer.pcAddress == 0 ? json() : PCJson({answer.pcAddress, answer.pcName});
    PrintJson(line);
}

}  // namespace

int RunScan(const ScanOptions& options) {
    CRunner runner;
    return runner.Run(options.network, [&options](CLinkHub& hub) -> asio::awaitable<int> {
        std::vector<asio::ip::address_v4> targets;
        for (const std::string& target : options.to) {
            targets.push_back(Resolve(target));
        }
        int found = 0;
        const std::function<void(const ScanAnswer&)> show = [&](const ScanAnswer& answer) {
            if (found++ == 0 && !options.json) {
                PrintLine(Row("SERIAL", "MODEL", "ADDRESS", "STATE"));
            }
            Show(answer, options.json);
        };
        const std::chrono::milliseconds duration(static_cast<std::int64_t>(options.seconds * 1000));
        co_await hub.Scan(targets, duration, show);
        if (found == 0) {
            PrintProblem("no analyzer answers");
        }
        co_return found == 0 ? kUnreachable : kDone;
    });
}

}  // namespace ZELPC
