#include "cli/GatewayCommands.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>

#include "gateway/ReadGatewayConfig.h"
#include "gateway/RunGateway.h"

namespace ZELPC {

namespace {

struct GatewayOptions {
    std::string config;
    bool check = false;
};

GatewayConfig ReadConfig(const std::string& path) {
    if (path.empty()) {
        return DefaultGatewayConfig(UserStateDirectory());
    }
    std::ifstream file(path, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    if (!file) {
        throw std::runtime_error(path + ": cannot be read");
    }
    return ReadGatewayConfig(text, path);
}

int Gateway(const GatewayOptions& options) {
    try {
        const GatewayConfig config = ReadConfig(options.config);
        if (options.check) {
            fmt::print("the configuration is right\n");
            return 0;
        }
        return RunGateway(config);
    } catch (const std::exception& error) {
        fmt::print(stderr, "zelpc: {}\n", error.what());
        return 1;
    }
}

}  // namespace

void AddGatewayCommands(CLI::App& app, std::function<int()>& run) {
    const auto options = std::make_shared<GatewayOptions>();
    CLI::App* const gateway =
        app.add_subcommand("gateway", "Keeps analyzers' results and brings them to their destinations");
    gateway->add_option("--config", options->config, "Configuration; without one: files in the user's state directory");
    gateway->add_flag("--check", options->check, "Only tell whether the configuration is right");
    gateway->callback([options, &run] { run = [options] { return Gateway(*options); }; });
}

}  // namespace ZELPC
