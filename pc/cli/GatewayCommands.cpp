#include "cli/GatewayCommands.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>

#include "cli/ExitStatus.h"
#include "cli/QueueCommand.h"
#include "gateway/CConfigTable.h"
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
        throw CConfigError(path + ": cannot be read");
    }
    return ReadGatewayConfig(text, path);
}

int Gateway(const GatewayOptions& options) {
    try {
        const GatewayConfig config = ReadConfig(options.config);
        if (options.check) {
            fmt::print("the configuration is right\n");
            return kDone;
        }
        return RunGateway(config);
    } catch (const CConfigError& error) {
        fmt::print(stderr, "zelpc: {}\n", error.what());
        return kUsage;
    } catch (const std::exception& error) {
        fmt::print(stderr, "zelpc: {}\n", error.what());
        return kFailed;
    }
}

constexpr char kGatewayEnd[] = R"(Examples:
  zelpc gateway                                    scans, keeps results as files, page on http://127.0.0.1:9080/
  zelpc gateway --config /etc/zelpc/gateway.toml --check
  zelpc gateway --config /etc/zelpc/gateway.toml   ends in order on SIGTERM and Ctrl-C)";

constexpr char kQueueEnd[] = R"(Examples:
  zelpc queue list
  zelpc queue show lis                          what is held, and why
  zelpc queue again lis --delivery 17           send one held delivery again
  zelpc queue again lis --patient P-4711        send a patient's results again
  zelpc queue again lis --since 2026-11-21T06:00 --until 2026-11-21T12:00
  zelpc queue drop 17                           give a delivery up; the result itself stays)";

using Runs = std::function<int()>;
using QueueRun = int (*)(const QueueOptions&);

CLI::App* AddQueueVerb(CLI::App& queue, const std::shared_ptr<QueueOptions>& options, Runs& run, const char* name,
                       const char* what, QueueRun verb) {
    CLI::App* const command = queue.add_subcommand(name, what);
    command->add_option("--gateway", options->gateway.at, "The gateway's page")
        ->type_name("HOST:PORT")
        ->capture_default_str();
    command
        ->add_option("--token-file", options->gateway.tokenFile, "File with its token; else ZELPC_TOKEN, else its own")
        ->type_name("FILE");
    command->add_flag("--json", options->json, "Write a JSON object a line");
    command->callback([options, &run, verb] { run = [options, verb] { return verb(*options); }; });
    return command;
}

void AddQueue(CLI::App& app, Runs& run) {
    const auto options = std::make_shared<QueueOptions>();
    CLI::App* const queue = app.add_subcommand("queue", "Look after a gateway's queues");
    queue->require_subcommand(1);
    queue->footer(std::string(kQueueEnd));
    AddQueueVerb(*queue, options, run, "list", "How each destination's queue stands", &RunQueueList);
    CLI::App* const show = AddQueueVerb(*queue, options, run, "show", "What is held, or waits", &RunQueueShow);
    show->add_option("name", options->name, "The destination")->required()->type_name("NAME");
    show->add_flag("--waiting", options->waiting, "What waits instead of what is held");
    CLI::App* const again = AddQueueVerb(*queue, options, run, "again", "Send results again", &RunQueueAgain);
    again->add_option("name", options->name, "The destination")->required()->type_name("NAME");
    again->add_option("--delivery", options->delivery, "One delivery, by its number")->type_name("NUMBER");
    again->add_option("--serial", options->serial, "The results of one analyzer")->type_name("SERIAL");
    again->add_option("--patient", options->patient, "The results of one patient or control")->type_name("ID");
    again->add_option("--since", options->since, "What came from this time on")->type_name("TIME");
    again->add_option("--until", options->until, "What came before this time")->type_name("TIME");
    again->add_flag("--all", options->all, "Everything");
    CLI::App* const drop = AddQueueVerb(*queue, options, run, "drop", "Give a delivery up", &RunQueueDrop);
    drop->add_option("delivery", options->delivery, "Its number")->required()->type_name("NUMBER");
}

}  // namespace

void AddGatewayCommands(CLI::App& app, std::function<int()>& run) {
    const auto options = std::make_shared<GatewayOptions>();
    CLI::App* const gateway =
        app.add_subcommand("gateway", "Keep analyzers' results and bring them to their destinations");
    gateway->footer(std::string(kGatewayEnd));
    gateway->add_option("--config", options->config, "Configuration; without one: files in the user's state directory")
        ->type_name("FILE");
    gateway->add_flag("--check", options->check, "Only tell whether the configuration is right");
    gateway->callback([options, &run] { run = [options] { return Gateway(*options); }; });
    AddQueue(app, run);
}

}  // namespace ZELPC
