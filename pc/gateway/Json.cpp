#include "gateway/Json.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <ctime>

#include "link/CRelease.h"
#include "packet/ScanAnswer.h"
#include "result/LabResult.h"

namespace ZELPC {

using nlohmann::json;

namespace {

void PutInfo(json& out, const DeviceInfo& info) {
    out["versions"] = {{"sys", info.sysVersion.value_or("")},
                       {"app", info.appVersion.value_or("")},
                       {"dsp", info.dspVersion.value_or("")},
                       {"xml", info.xmlVersion.value_or("")}};
}

json PushJson(const PushProgress& push) {
    json images = json::array();
    for (const auto& [image, progress] : push.images) {
        images.push_back(
            {{"image", NameOf(image)}, {"sent", progress.sent}, {"size", progress.size}, {"stored", progress.stored}});
    }
    return {{"step", TextOf(push.step)}, {"over", push.IsOver()}, {"reason", push.reason}, {"images", images}};
}

std::int64_t Milliseconds(std::chrono::system_clock::time_point time) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

}  // namespace

std::string Dump(const json& value) {
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

json TimeJson(std::int64_t milliseconds) {
    if (milliseconds == 0) {
        return nullptr;
    }
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z", fmt::gmtime(static_cast<std::time_t>(milliseconds / 1000)),
                       milliseconds % 1000);
}

std::int64_t ParseTime(const std::string& text) {
    for (const char* const form : {"%Y-%m-%dT%H:%M:%S", "%Y-%m-%dT%H:%M", "%Y-%m-%d"}) {
        std::tm time{};
        const char* const end = ::strptime(text.c_str(), form, &time);
        if (end != nullptr && (*end == '\0' || std::string_view(end) == "Z")) {
            time.tm_isdst = -1;
            return (*end == 'Z' ? ::timegm(&time) : ::mktime(&time)) * 1000;
        }
    }
    return 0;
}

const char* NameOf(DeliveryState state) {
    constexpr const char* kNames[] = {"waiting", "held", "delivered", "dropped"};
    return kNames[static_cast<int>(state)];
}

json ToJson(const AnalyzerView& analyzer) {
    const LinkStatus& status = analyzer.status;
    json out = {{"serial", status.serial},
                {"model", status.model},
                {"address", status.address.to_string()},
                {"state", TextOf(status.state)},
                {"reason", status.reason},
                {"since", TimeJson(Milliseconds(status.since))},
                {"results", analyzer.results},
                {"last_result", TimeJson(analyzer.lastResult)}};
    out["registered_pc"] = status.otherPC.has_value() ? json{{"address", DottedAddress(status.otherPC->address)},
                                                             {"name", status.otherPC->name}}
                                                      : json();
    if (analyzer.info.has_value()) {
        PutInfo(out, *analyzer.info);
    }
    out["update"] = analyzer.push.has_value() ? PushJson(*analyzer.push) : json();
    return out;
}

json ToJson(const StoredResult& result) {
    return {{"id", result.id},
            {"serial", result.serial},
            {"received", TimeJson(result.received)},
            {"kind", result.facts.kind == "Q"   ? "control"
                     : result.facts.kind == "P" ? "patient"
                                                : "unknown"},
            {"patient", result.facts.patient},
            {"panel", result.facts.panel},
            {"measured", result.facts.measured},
            {"repeats", result.repeats}};
}

json ValuesJson(const std::string& text) {
    json values = json::array();
    if (const auto result = ReadLabResult(text); result.has_value()) {
        for (const LabValue& value : result->values) {
            values.push_back({{"analyte", value.analyte},
                              {"value", value.value},
                              {"unit", value.unit},
                              {"range", value.range},
                              {"qc_flag", value.qcFlag},
                              {"error_code", value.errorCode},
                              {"error_level", value.errorLevel}});
        }
    }
    return values;
}

json ToJson(const Delivery& delivery) {
    return {{"id", delivery.id},
            {"result", delivery.result},
            {"serial", delivery.serial},
            {"patient", delivery.patient},
            {"destination", delivery.destination},
            {"state", NameOf(delivery.state)},
            {"attempts", delivery.attempts},
            {"reason", delivery.reason},
            {"queued", TimeJson(delivery.queued)},
            {"changed", TimeJson(delivery.changed)}};
}

json ToJson(const AsideText& aside) {
    return {{"serial", aside.serial},
            {"received", TimeJson(aside.received)},
            {"times", aside.times},
            {"reason", aside.reason},
            {"text", aside.text}};
}

json ToJson(const Alarm& alarm) {
    return {{"kind", alarm.kind}, {"name", alarm.name}, {"text", alarm.text}, {"since", TimeJson(alarm.since)}};
}

json ToJson(const QueueCount& count, const DeliveryStatus* status) {
    json out = {{"destination", count.destination},
                {"configured", status != nullptr},
                {"waiting", count.waiting},
                {"held", count.held},
                {"oldest", TimeJson(count.oldest)}};
    if (status != nullptr) {
        out["problem"] = status->problem;
        out["problem_since"] = status->problem.empty() ? json() : TimeJson(status->since);
        out["delivered"] = status->delivered;
        out["failed"] = status->failed;
        out["last_delivered"] = TimeJson(status->lastDelivered);
    }
    return out;
}

}  // namespace ZELPC
