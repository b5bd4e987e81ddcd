#include "result/MessageText.h"

#include <algorithm>

namespace ZELPC {

namespace {

struct Name {
    std::string_view place;
    const char* name;
};

constexpr Name kNames[] = {
    {"MSH-2", "encoding characters"},
    {"MSH-3", "sending application"},
    {"MSH-4", "sending facility"},
    {"MSH-5", "receiving application"},
    {"MSH-6", "receiving facility"},
    {"MSH-7", "built at"},
    {"MSH-9", "message type"},
    {"MSH-10", "control ID"},
    {"MSH-11", "processing"},
    {"MSH-12", "version"},
    {"MSH-15", "accept acknowledgement"},
    {"MSH-16", "application acknowledgement"},
    {"MSH-18", "character set"},
    {"MSH-21", "profile"},
    {"MSA-1", "acknowledgement"},
    {"MSA-2", "control ID of the message"},
    {"MSA-3", "text"},
    {"ERR-3", "error"},
    {"ERR-4", "severity"},
    {"PID-3", "patient or control"},
    {"PID-5", "name"},
    {"PID-7", "birth date"},
    {"PID-8", "sex"},
    {"PID-21", "client"},
    {"PID-35", "species"},
    {"SPM-1", "number"},
    {"SPM-4", "specimen type"},
    {"SPM-11", "P patient, Q control"},
    {"SAC-32", "hemolysis index"},
    {"SAC-34", "lipemia index"},
    {"SAC-36", "icterus index"},
    {"SAC-43", "reagent version"},
    {"INV-1", "control material"},
    {"INV-12", "expiry date"},
    {"INV-16", "lot of the material"},
    {"OBR-2", "order"},
    {"OBR-4", "panel"},
    {"OBR-16", "orderer"},
    {"ORC-1", "order control"},
    {"ORC-2", "order"},
    {"ORC-9", "ordered at"},
    {"OBX-1", "number"},
    {"OBX-3", "code"},
    {"OBX-4", "analyte"},
    {"OBX-5", "value"},
    {"OBX-6", "unit"},
    {"OBX-7", "reference range"},
    {"OBX-8", "abnormal flags"},
    {"OBX-11", "F final"},
    {"OBX-13", "checks"},
    {"OBX-16", "operator"},
    {"OBX-18", "equipment"},
    {"OBX-19", "measured at"},
    {"SID-2", "lot of the panel"},
};

void ListSegment(std::string_view line, std::vector<MessageField>& fields) {
    const std::string segment(line.substr(0, std::min<std::size_t>(line.find('|'), 3)));
    // MSH-1 is the separator itself.
    int number = segment == "MSH" ? 1 : 0;
    while (line.find('|') != std::string_view::npos) {
        line.remove_prefix(line.find('|') + 1);
        const std::string_view value = line.substr(0, line.find('|'));
        const std::string place = segment + "-" + std::to_string(++number);
        if (!value.empty()) {
            const auto name = std::ranges::find(kNames, place, &Name::place);
            fields.push_back({place, name == std::end(kNames) ? "" : name->name, std::string(value)});
        }
    }
}

}  // namespace

std::vector<MessageField> ListMessage(std::string_view text) {
    std::vector<MessageField> fields;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find_first_of("\r\n"), text.size());
        ListSegment(text.substr(0, end), fields);
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return fields;
}

}  // namespace ZELPC
