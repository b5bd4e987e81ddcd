#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <set>

#include "deliver/LoincTable.h"
#include "gateway/CConfigTable.h"
#include "gateway/ReadGatewayConfig.h"

namespace ZELPC {

namespace {

void ReadWhatIsSent(CConfigTable& table, DestinationOptions& destination) {
    constexpr std::array<const char*, 3> kKinds{"", "P", "Q"};
    destination.kind = kKinds[table.Choice("results", {"all", "patients", "controls"})];
    destination.standard = table.Choice("format", {"as-is", "standard"}) == 1;
    std::string* const names[] = {&destination.names.sendingApplication, &destination.names.sendingFacility,
                                  &destination.names.receivingApplication, &destination.names.receivingFacility};
    const char* const keys[] = {"sending_application", "sending_facility", "receiving_application",
                                "receiving_facility"};
    for (std::size_t index = 0; index < std::size(keys); ++index) {
        *names[index] = table.Text(keys[index]);
        if (!names[index]->empty() && !destination.standard) {
            table.Fail(keys[index], "is only written with format = \"standard\"");
        }
        if (std::ranges::any_of(*names[index],
                                [](unsigned char byte) { return byte < ' ' || byte == '|' || byte == '^'; })) {
            table.Fail(keys[index], "holds a character that HL7 uses between fields");
        }
    }
    if (const auto loinc = table.File("loinc_file"); loinc.has_value()) {
        try {
            destination.loinc = ReadLoincTable(*loinc);
        } catch (const std::exception& error) {
            table.Fail("loinc_file", error.what());
        }
    }
}

void ReadQueue(CConfigTable& table, DestinationOptions& destination) {
    destination.firstPause = table.Seconds("first_pause_s", 0.1, 3600, 1);
    destination.longestPause = table.Seconds("longest_pause_s", 0.1, 86400, 60);
    if (destination.longestPause < destination.firstPause) {
        table.Fail("longest_pause_s", "is shorter than first_pause_s");
    }
    destination.maxAttempts = static_cast<int>(table.Number("max_attempts", 0, 1'000'000, 0));
    destination.stopOnReject = table.Choice("on_reject", {"hold", "stop"}) == 1;
    destination.alarmAfter =
        std::chrono::duration_cast<std::chrono::seconds>(table.Seconds("alarm_after_s", 1, 31'536'000, 300));
    destination.alarmBacklog = static_cast<int>(table.Number("alarm_backlog", 1, 1'000'000'000, 1000));
}

void ReadConnection(CConfigTable& table, DestinationOptions& destination, int port) {
    destination.host = table.Required("host");
    destination.port = std::to_string(table.Number("port", 1, 65535, port));
    destination.tls = table.Flag("tls", false);
    destination.caFile = table.Text("ca_file");
    destination.certificateFile = table.Text("certificate_file");
    destination.keyFile = table.Text("key_file");
    if (destination.certificateFile.empty() != destination.keyFile.empty()) {
        table.Fail("certificate_file", "goes together with key_file");
    }
    if (!destination.tls && !(destination.caFile + destination.keyFile).empty()) {
        table.Fail("tls", "must be true for ca_file, certificate_file and key_file");
    }
    destination.connectTimeout = table.Seconds("connect_timeout_s", 1, 300, 10);
    destination.answerTimeout = table.Seconds("answer_timeout_s", 1, 3600, 30);
}

DestinationOptions ReadDestination(CConfigTable& table) {
    DestinationOptions destination;
    destination.name = table.Required("name");
    const auto isPlain = [](unsigned char byte) { return std::isalnum(byte) != 0 || byte == '-' || byte == '_'; };
    if (!std::ranges::all_of(destination.name, isPlain)) {
        table.Fail("name", "letters, digits, \"-\" and \"_\" are expected");
    }
    table.Required("type");
    destination.type = static_cast<DestinationType>(table.Choice("type", {"mllp", "rabbitmq", "directory"}));
    ReadWhatIsSent(table, destination);
    ReadQueue(table, destination);
    switch (destination.type) {
        case DestinationType::kMllp:
            ReadConnection(table, destination, 2575);
            destination.connections = static_cast<int>(table.Number("connections", 1, 64, 1));
            break;
        case DestinationType::kRabbitMq:
            ReadConnection(table, destination, 5672);
            destination.user = table.Text("user", "guest");
            destination.password = table.File("password_file").value_or("guest");
            destination.virtualHost = table.Text("virtual_host", "/");
            destination.queue = table.Required("queue");
            break;
        case DestinationType::kDirectory:
            destination.directory = table.Required("directory");
            break;
    }
    table.Finish();
    return destination;
}

}  // namespace

std::vector<DestinationOptions> ReadDestinations(CConfigTable& root) {
    std::vector<DestinationOptions> destinations;
    std::set<std::string> names;
    for (CConfigTable& table : root.Tables("destination")) {
        destinations.push_back(ReadDestination(table));
        if (!names.insert(destinations.back().name).second) {
            table.Fail("name", "another destination has this name");
        }
    }
    return destinations;
}

}  // namespace ZELPC
