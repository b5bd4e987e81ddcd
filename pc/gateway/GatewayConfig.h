#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "deliver/DestinationOptions.h"
#include "link/LinkSettings.h"
#include "store/CStore.h"

namespace ZELPC {

struct ScanConfig {
    bool enabled = true;
    std::vector<boost::asio::ip::address_v4> targets;  ///< empty: every interface's broadcast address
    std::chrono::milliseconds every{60'000};
    std::string password;  ///< of the analyzers that are found
    bool takeOver = false;
};

struct WebConfig {
    bool enabled = true;
    std::string address = "127.0.0.1";
    std::uint16_t port = 9080;
    std::string token;               ///< empty: reading is for everybody on this machine, acting for nobody
    std::vector<std::string> hosts;  ///< names under which the page may be asked for, beside its address
};

struct GatewayConfig {
    int threads = 2;
    std::string logLevel = "info";
    StoreOptions store;
    HubSettings pc;
    ScanConfig scan;
    std::vector<LinkSettings> analyzers;
    std::vector<DestinationOptions> destinations;
    WebConfig web;
    std::string alarmCommand;   ///< program to run when an alarm begins or ends; empty: none
    std::string pushDirectory;  ///< where releases to be pushed lie; empty: the page pushes none
};

}  // namespace ZELPC
