#include <nlohmann/json.hpp>

#include "cli/CRunner.h"
#include "cli/Commands.h"
#include "cli/ExitStatus.h"
#include "cli/InfoText.h"
#include "cli/Output.h"
#include "link/Visits.h"
#include "wire/PCCommand.h"

namespace ZELPC {

namespace asio = boost::asio;

namespace {

constexpr std::uint16_t kEverything = kItemActivity | kItemPeerID | kItemTCPPort | kItemDeviceAddress |
                                      kItemSerialNumber | kItemAnyVersion | kItemRegistration;

}  // namespace

int RunInfo(const InfoOptions& options) {
    CRunner runner;
    return runner.Run(options.network, [&options](CLinkHub& hub) -> asio::awaitable<int> {
        const asio::ip::address_v4 analyzer = Resolve(options.host);
        const DeviceInfo info = co_await AskInfo(hub, analyzer, kEverything);
        if (options.json) {
            nlohmann::json object = InfoJson(info);
            object["event"] = "info";
            PrintJson(object);
        } else {
            for (const std::string& line : InfoText(info)) {
                PrintLine(line);
            }
        }
        co_return kDone;
    });
}

}  // namespace ZELPC
