#include "gateway/ReadGatewayConfig.h"

#include <fmt/format.h>

#include <boost/asio/ip/address.hpp>
#include <cstdlib>
#include <set>

#include "gateway/CConfigTable.h"

namespace ZELPC {

namespace {

using Address = boost::asio::ip::address_v4;

constexpr char kPasswordVariable[] = "ZELPC_PASSWORD";

Address ReadAddress(CConfigTable& table, std::string_view key, const std::string& text) {
    boost::system::error_code error;
    const Address address = boost::asio::ip::make_address_v4(text, error);
    if (error) {
        table.Fail(key, fmt::format("\"{}\" is not an IPv4 address", text));
    }
    return address;
}

std::vector<Address> ReadAddresses(CConfigTable& table, std::string_view key) {
    std::vector<Address> addresses;
    for (const std::string& text : table.Texts(key)) {
        addresses.push_back(ReadAddress(table, key, text));
    }
    return addresses;
}

std::string ReadPassword(CConfigTable& table, const std::string& otherwise) {
    const std::string password = table.File("password_file").value_or(otherwise);
    constexpr std::size_t kCarried = 8;  // by the protocol
    if (password.size() > kCarried) {
        table.Fail("password_file", "an analyzer's password has at most 8 characters");
    }
    return password;
}

std::string EnvironmentPassword() {
    const char* const password = std::getenv(kPasswordVariable);
    return password == nullptr ? std::string() : password;
}

HubSettings ReadPc(CConfigTable table) {
    HubSettings pc;
    if (const std::string address = table.Text("address"); !address.empty()) {
        pc.localAddress = ReadAddress(table, "address", address);
    }
    pc.udpPort = static_cast<std::uint16_t>(table.Number("udp_port", 0, 65535, pc.udpPort));
    pc.name = table.Text("name", pc.name);
    if (pc.name.empty() || pc.name.size() > 10) {
        table.Fail("name", "1 to 10 characters are expected");
    }
    const std::string peerID = table.Text("peer_id", "1");
    if (peerID.size() != 1 || peerID[0] <= ' ' || peerID[0] > '~') {
        table.Fail("peer_id", "one character is expected");
    }
    pc.peerID = peerID[0];
    table.Finish();
    return pc;
}

ScanConfig ReadScan(CConfigTable table) {
    ScanConfig scan;
    scan.enabled = table.Flag("enabled", true);
    scan.targets = ReadAddresses(table, "targets");
    scan.every = table.Seconds("every_s", 5, 86400, 60);
    scan.password = ReadPassword(table, EnvironmentPassword());
    scan.takeOver = table.Flag("take_over", false);
    table.Finish();
    return scan;
}

LinkSettings ReadAnalyzer(CConfigTable& table) {
    LinkSettings analyzer;
    analyzer.serial = table.Text("serial");
    if (const std::string address = table.Text("address"); !address.empty()) {
        analyzer.address = ReadAddress(table, "address", address);
    } else if (analyzer.serial.empty()) {
        table.Fail("address", "an analyzer needs an address, a serial number, or both");
    }
    analyzer.password = ReadPassword(table, EnvironmentPassword());
    analyzer.takeOver = table.Flag("take_over", false);
    table.Finish();
    return analyzer;
}

std::vector<LinkSettings> ReadAnalyzers(CConfigTable& root) {
    std::vector<LinkSettings> analyzers;
    std::set<std::string> seen;
    for (CConfigTable& table : root.Tables("analyzer")) {
        analyzers.push_back(ReadAnalyzer(table));
        const LinkSettings& analyzer = analyzers.back();
        const std::string who = analyzer.serial.empty() ? analyzer.address.to_string() : analyzer.serial;
        if (!seen.insert(who).second) {
            table.Fail(analyzer.serial.empty() ? "address" : "serial", "this analyzer stands there twice");
        }
    }
    return analyzers;
}

StoreOptions ReadStore(CConfigTable table) {
    StoreOptions store;
    store.path = table.Text("path", UserStateDirectory() + "/store.db");
    store.minFreeBytes = table.Number("min_free_mb", 0, 1 << 20, 64) << 20;
    store.keepDays = static_cast<int>(table.Number("keep_days", 0, 36'500, 0));
    table.Finish();
    return store;
}

WebConfig ReadWeb(CConfigTable table) {
    WebConfig web;
    web.enabled = table.Flag("enabled", true);
    web.address = table.Text("address", web.address);
    boost::system::error_code error;
    const auto address = boost::asio::ip::make_address(web.address, error);
    if (error) {
        table.Fail("address", fmt::format("\"{}\" is not an IP address", web.address));
    }
    web.port = static_cast<std::uint16_t>(table.Number("port", 0, 65535, web.port));
    web.token = table.File("token_file").value_or("");
    if (!web.token.empty() && web.token.size() < 16) {
        table.Fail("token_file", "a token has at least 16 characters");
    }
    if (web.token.empty() && !address.is_loopback()) {
        table.Fail("address", "results would be open to the network: set token_file");
    }
    web.hosts = table.Texts("hosts");
    table.Finish();
    return web;
}

std::string ReadAlarm(CConfigTable table) {
    std::string command = table.Text("command");
    if (!command.empty() && !command.starts_with('/')) {
        table.Fail("command", "the whole path of a program is expected");
    }
    table.Finish();
    return command;
}

void ReadGateway(CConfigTable table, GatewayConfig& config) {
    config.threads = static_cast<int>(table.Number("threads", 1, 64, 2));
    table.Choice("log", {"info", "debug", "warn", "error"});
    config.logLevel = table.Text("log", "info");
    config.pushDirectory = table.Text("push_directory");
    table.Finish();
}

}  // namespace

std::string UserStateDirectory() {
    if (const char* const state = std::getenv("STATE_DIRECTORY"); state != nullptr && *state != '\0') {
        return state;  // of a systemd unit
    }
    if (const char* const state = std::getenv("XDG_STATE_HOME"); state != nullptr && *state == '/') {
        return std::string(state) + "/zelpc";
    }
    const char* const home = std::getenv("HOME");
    return std::string(home == nullptr ? "/var/lib" : home) + (home == nullptr ? "/zelpc" : "/.local/state/zelpc");
}

GatewayConfig DefaultGatewayConfig(const std::string& stateDirectory) {
    GatewayConfig config;
    config.store.path = stateDirectory + "/store.db";
    config.scan.password = EnvironmentPassword();
    DestinationOptions files;
    files.name = "files";
    files.directory = stateDirectory + "/results";
    config.destinations.push_back(files);
    return config;
}

GatewayConfig ReadGatewayConfig(std::string_view text, const std::string& file) {
    const toml::parse_result parsed = [&] {
        try {
            return toml::parse(text, file);
        } catch (const toml::parse_error& error) {
            throw CConfigError(fmt::format("{}:{}: {}", file, error.source().begin.line, error.description()));
        }
    }();
    CConfigTable root(&parsed, file, "");
    GatewayConfig config;
    ReadGateway(root.Table("gateway"), config);
    config.store = ReadStore(root.Table("store"));
    config.pc = ReadPc(root.Table("pc"));
    config.scan = ReadScan(root.Table("scan"));
    config.pc.searchAddresses = config.scan.targets;
    config.analyzers = ReadAnalyzers(root);
    config.destinations = ReadDestinations(root);
    config.web = ReadWeb(root.Table("web"));
    config.alarmCommand = ReadAlarm(root.Table("alarm"));
    root.Finish();
    if (config.analyzers.empty() && !config.scan.enabled) {
        root.Fail("analyzer", "no analyzer is listed, and none is scanned for");
    }
    if (config.destinations.empty()) {
        root.Fail("destination", "there is none: results would go nowhere");
    }
    return config;
}

}  // namespace ZELPC
