#include "cli/InfoText.h"

#include <nlohmann/json.hpp>

#include "cli/Output.h"
#include "packet/ScanAnswer.h"

namespace ZELPC {

using nlohmann::json;

namespace {

std::string RegistrationText(const DeviceInfo& info) {
    if (info.registered.value_or(false)) {
        return "this PC";
    }
    return info.registrant && info.registrant->address != 0 ? PCText(*info.registrant) : "none";
}

}  // namespace

std::string PCText(const OtherPC& pc) {
    return DottedAddress(pc.address) + (pc.name.empty() ? "" : " \"" + pc.name + "\"");
}

json PCJson(const OtherPC& pc) {
    return {{"address", DottedAddress(pc.address)}, {"name", pc.name}};
}

std::vector<std::string> InfoText(const DeviceInfo& info) {
    std::vector<std::vector<std::string>> rows;
    const auto add = [&rows](const char* name, const std::optional<std::string>& value) {
        if (value) {
            rows.push_back({name, value->empty() ? "not known" : *value});
        }
    };
    add("serial number", info.serial);
    if (info.address) {
        add("address", DottedAddress(*info.address));
    }
    if (info.tcpPort) {
        add("TCP port", std::to_string(*info.tcpPort));
    }
    if (info.activity) {
        add("activity", ActivityText(*info.activity));
    }
    if (info.registered) {
        add("registered PC", RegistrationText(info));
    }
    if (info.peerID) {
        add("peer ID", std::to_string(*info.peerID));
    }
    add("SYS version", info.sysVersion);
    add("APP version", info.appVersion);
    add("DSP version", info.dspVersion);
    add("XML version", info.xmlVersion);
    return Table(rows);
}

json InfoJson(const DeviceInfo& info) {
    json object = json::object();
    const auto add = [&object](const char* name, const auto& value) {
        if (value) {
            object[name] = *value;
        }
    };
    add("serial", info.serial);
    add("tcp_port", info.tcpPort);
    add("peer_id", info.peerID);
    add("sys_version", info.sysVersion);
    add("app_version", info.appVersion);
    add("dsp_version", info.dspVersion);
    add("xml_version", info.xmlVersion);
    if (info.address) {
        object["address"] = DottedAddress(*info.address);
    }
    if (info.activity) {
        object["activity"] = ActivityWord(*info.activity);
    }
    if (info.registered) {
        object["registered"] = *info.registered;
        const bool other = info.registrant && info.registrant->address != 0;
        object["pc"] = other ? PCJson(*info.registrant) : json();
    }
    return object;
}

}  // namespace ZELPC
