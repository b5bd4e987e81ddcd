#include "cli/Arguments.h"

#include <CLI/CLI.hpp>

#include "cli/Commands.h"
#include "cli/ExitStatus.h"
#include "cli/GatewayCommands.h"
#include "cli/Output.h"
#include "link/LinkSettings.h"

namespace ZELPC {

namespace {

constexpr char kEnd[] =
    R"(Exit status: 0 done, 1 it did not come about, 2 wrong arguments or unreadable files, 3 no analyzer
answers, 4 refused, 5 a release, message or packet is not what it should be, 6 called off.)";

constexpr char kScanEnd[] = R"(Examples:
  zelpc scan                        who is on the networks of this PC
  zelpc scan --to 192.168.40.255    ask one network
  zelpc scan --json --seconds 1     a JSON object a line, for programs)";

constexpr char kInfoEnd[] = R"(Examples:
  zelpc info 192.168.40.10
  zelpc info analyzer-2.lab --json)";

constexpr char kRegisterEnd[] =
    R"(The administrator password is read from the file, from the environment's ZELPC_PASSWORD, or else asked for.

Examples:
  zelpc register 192.168.40.10
  zelpc register 192.168.40.10 --password-file /etc/zelpc/password --take-over)";

constexpr char kUnregisterEnd[] = R"(Examples:
  zelpc unregister 192.168.40.10
  zelpc unregister 192.168.40.10 --force    also when another program of this PC holds it)";

constexpr char kWatchEnd[] =
    R"(Without --save results are shown and not acknowledged: they stay at the analyzer, which says that they were not sent.
With it each is a file on disk before it is acknowledged. Ctrl-C ends the watch; the registration stays.

Examples:
  zelpc watch 192.168.40.10
  zelpc watch 192.168.40.10 192.168.40.11 --save results --password-file password
  zelpc watch --gateway 127.0.0.1:9080          what a gateway's analyzers send; it is the one that acknowledges)";

constexpr char kPushEnd[] =
    R"(The folder holds the update files by their names, for example zel_sys.n62.bin. SYS, APP and XML go together. Ctrl-C
calls the update off as long as the analyzer has not got everything.

Examples:
  zelpc push 192.168.40.10 release-2.1
  zelpc push 192.168.40.10 release-2.1 --when-asked    the analyzer's operator begins it
  zelpc push N62A0001234 release-2.1 --gateway 127.0.0.1:9080    a release in the gateway's push directory)";

constexpr char kDecodeEnd[] =
    R"(The file is an HL7 message; a capture of network traffic (pcap, pcapng); bytes of packets; or their hexadecimal digits,
also as lines of the analyzer's log. "-" is standard input.

Examples:
  zelpc decode results/S1234-20260601080000-0a1b2c3d4e5f6071.hl7
  tcpdump -w - port 9034 or port 9035 | zelpc decode -)";

CLI::App* Add(CLI::App& app, const char* name, const char* what, const char* end) {
    CLI::App* command = app.add_subcommand(name, what);
    command->footer(std::string(end));
    return command;
}

void AddNetwork(CLI::App* command, NetworkOptions& options, std::uint16_t port) {
    options.udpPort = port;
    command->add_option("--from", options.from, "Address of this PC to send from")->type_name("ADDRESS");
    command->add_option("--udp-port", options.udpPort, "UDP port of this PC; 0: any free one")
        ->type_name("PORT")
        ->capture_default_str();
    command->add_option("--name", options.name, "Name that analyzers show for this PC, at most 10 characters")
        ->type_name("NAME")
        ->check([](const std::string& name) { return name.size() > 10 ? "at most 10 characters" : std::string(); })
        ->capture_default_str();
}

void AddPassword(CLI::App* command, PasswordOptions& options) {
    command->add_option("--password-file", options.file, "File whose first line is the administrator password")
        ->type_name("FILE");
}

void AddGateway(CLI::App* command, ThroughGateway& options) {
    command
        ->add_option("--gateway", options.at,
                     "Ask the gateway that holds the analyzer instead; HOST is then a serial number or an address")
        ->type_name("HOST:PORT");
    command->add_option("--token-file", options.tokenFile, "File with its token; else ZELPC_TOKEN, else its own")
        ->type_name("FILE");
}

void AddHost(CLI::App* command, std::string& host) {
    command->add_option("host", host, "Address or name of the analyzer")->required()->type_name("HOST");
}

void AddJson(CLI::App* command, bool& json) {
    command->add_flag("--json", json, "Write a JSON object a line");
}

/// The options of every sub-command; they live as long as the parser.
struct Arguments {
    ScanOptions scan;
    InfoOptions info;
    RegisterOptions registering;
    UnregisterOptions unregistering;
    WatchOptions watch;
    PushOptions push;
    DecodeOptions decode;
};

void AddScan(CLI::App& app, ScanOptions& options, int& status) {
    CLI::App* command = Add(app, "scan", "Find analyzers on the network", kScanEnd);
    command->add_option("--to", options.to, "Address to ask instead of every network")->type_name("ADDRESS");
    command->add_option("--seconds", options.seconds, "How long to wait for answers")
        ->check(CLI::Range(0.1, 3600.0).description(""))
        ->type_name("SECONDS")
        ->capture_default_str();
    AddNetwork(command, options.network, 0);
    AddJson(command, options.json);
    command->callback([&] { status = RunScan(options); });
}

void AddInfo(CLI::App& app, InfoOptions& options, int& status) {
    CLI::App* command = Add(app, "info", "Show what an analyzer tells about itself", kInfoEnd);
    AddHost(command, options.host);
    AddNetwork(command, options.network, 0);
    AddJson(command, options.json);
    command->callback([&] { status = RunInfo(options); });
}

void AddRegister(CLI::App& app, RegisterOptions& options, int& status) {
    CLI::App* command = Add(app, "register", "Make this PC the one that gets an analyzer's results", kRegisterEnd);
    AddHost(command, options.host);
    command->add_flag("--take-over", options.takeOver, "Replace another PC that is registered");
    AddPassword(command, options.password);
    AddNetwork(command, options.network, HubSettings().udpPort);
    AddJson(command, options.json);
    command->callback([&] { status = RunRegister(options); });
}

void AddUnregister(CLI::App& app, UnregisterOptions& options, int& status) {
    CLI::App* command = Add(app, "unregister", "End this PC's registration", kUnregisterEnd);
    AddHost(command, options.host);
    command->add_flag("--force", options.force, "Also when another program of this PC holds it; needs the password");
    AddPassword(command, options.password);
    AddNetwork(command, options.network, 0);
    AddJson(command, options.json);
    command->callback([&] { status = RunUnregister(options); });
}

void AddWatch(CLI::App& app, WatchOptions& options, int& status) {
    CLI::App* command = Add(app, "watch", "Stay registered and show results as they come", kWatchEnd);
    command->add_option("host", options.hosts, "Addresses or names of analyzers")->type_name("HOST");
    CLI::Option* const save =
        command->add_option("--save", options.save, "Folder in which each result becomes a file")->type_name("DIR");
    command->add_flag("--take-over", options.takeOver, "Replace another PC that is registered");
    AddPassword(command, options.password);
    AddGateway(command, options.gateway);
    command->get_option("--gateway")->excludes(save);
    AddNetwork(command, options.network, HubSettings().udpPort);
    AddJson(command, options.json);
    command->callback([&] {
        if (options.hosts.empty() && options.gateway.at.empty()) {
            throw CLI::RequiredError("host");
        }
        status = RunWatch(options);
    });
}

void AddPush(CLI::App& app, PushOptions& options, int& status) {
    CLI::App* command = Add(app, "push", "Send a software update to an analyzer", kPushEnd);
    AddHost(command, options.host);
    command->add_option("folder", options.folder, "Folder with the update files; of a gateway, its name there")
        ->required()
        ->type_name("DIR");
    command->add_flag("--when-asked", options.whenAsked, "Wait until the analyzer's operator asks for it");
    command->add_flag("--take-over", options.takeOver, "Replace another PC that is registered");
    AddPassword(command, options.password);
    AddGateway(command, options.gateway);
    AddNetwork(command, options.network, HubSettings().udpPort);
    AddJson(command, options.json);
    command->callback([&] {
        const std::string missing = CLI::ExistingDirectory(options.folder);
        if (options.gateway.at.empty() && !missing.empty()) {
            throw CLI::ValidationError("folder", missing);
        }
        status = RunPush(options);
    });
}

void AddDecode(CLI::App& app, DecodeOptions& options, int& status) {
    CLI::App* command = Add(app, "decode", "Say in words what a message or a capture holds", kDecodeEnd);
    command->add_option("file", options.file, "File to read; - is standard input")->required()->type_name("FILE");
    AddJson(command, options.json);
    command->callback([&] { status = RunDecode(options); });
}

}  // namespace

int RunArguments(int argc, const char* const* argv) {
    CLI::App app("zelpc, the PC's side of the analyzers: finds them, takes their results, sends them updates");
    app.set_version_flag("--version", std::string("zelpc ") + ZELPC_VERSION);
    app.set_help_flag("-h,--help", "Show this help");
    app.require_subcommand(1);
    app.footer(std::string(kEnd));

    Arguments arguments;
    int status = kDone;
    AddScan(app, arguments.scan, status);
    AddInfo(app, arguments.info, status);
    AddRegister(app, arguments.registering, status);
    AddUnregister(app, arguments.unregistering, status);
    AddWatch(app, arguments.watch, status);
    AddPush(app, arguments.push, status);
    AddDecode(app, arguments.decode, status);
    std::function<int()> gateway;
    AddGatewayCommands(app, gateway);
    const auto isMeant = [&](const CLI::App* command) { return command->get_name() == argv[1]; };
    if (argc > 1 && *argv[1] != '-' && app.get_subcommands(isMeant).empty()) {
        PrintProblem("there is no command \"" + std::string(argv[1]) + "\"; --help shows those that there are");
        return kUsage;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kDone : kUsage;
    }
    return gateway ? gateway() : status;
}

}  // namespace ZELPC
