#include "cli/ResultText.h"

#include <nlohmann/json.hpp>

#include "cli/Output.h"

namespace ZELPC {

using nlohmann::json;

namespace {

/// A text of a result: how programs and people call it.
struct Field {
    std::string LabResult::*value;
    const char* key;
    const char* name;
    bool date;
};

constexpr Field kFields[] = {
    {&LabResult::birth, "birth", "born", true},
    {&LabResult::sex, "sex", "sex", false},
    {&LabResult::age, "age", "age", false},
    {&LabResult::speciesName, "species_name", "species", false},
    {&LabResult::species, "species", "species code", false},
    {&LabResult::client, "client", "client", false},
    {&LabResult::specimen, "specimen", "specimen", false},
    {&LabResult::panel, "panel", "panel", false},
    {&LabResult::panelSerial, "panel_serial", "panel serial", false},
    {&LabResult::lot, "lot", "lot", false},
    {&LabResult::reagentVersion, "reagent_version", "reagent version", false},
    {&LabResult::materialName, "material", "material", false},
    {&LabResult::materialLevel, "material_level", "level", false},
    {&LabResult::materialLot, "material_lot", "material lot", false},
    {&LabResult::materialExpiry, "material_expiry", "expires", true},
    {&LabResult::hemolysis, "hemolysis", "hemolysis", false},
    {&LabResult::lipemia, "lipemia", "lipemia", false},
    {&LabResult::icterus, "icterus", "icterus", false},
};

struct ValueField {
    std::string LabValue::*value;
    const char* key;
};

constexpr ValueField kValueFields[] = {
    {&LabValue::analyte, "analyte"},
    {&LabValue::value, "value"},
    {&LabValue::unit, "unit"},
    {&LabValue::range, "range"},
    {&LabValue::qcFlag, "qc_flag"},
    {&LabValue::errorCode, "error_code"},
    {&LabValue::errorLevel, "error_level"},
    {&LabValue::rule, "rule"},
    {&LabValue::ruleFlag, "rule_flag"},
    {&LabValue::limits, "limits"},
    {&LabValue::dynamicRange, "dynamic_range"},
    {&LabValue::measured, "measured"},
    {&LabValue::operatorID, "operator"},
};

/// What deserves a look about a value: "error 3, flag 1".
std::string Remarks(const LabValue& value) {
    std::string text;
    const auto add = [&text](const char* name, const std::string& code) {
        if (!code.empty() && code != "0") {
            text += (text.empty() ? "" : ", ") + std::string(name) + " " + code;
        }
    };
    add("error", value.errorCode);
    add("level", value.errorLevel);
    add("flag", value.qcFlag);
    add("rule", value.rule);
    add("rule flag", value.ruleFlag);
    return text;
}

}  // namespace

std::vector<std::string> ResultText(const LabResult& result) {
    std::string about;
    for (const Field& field : kFields) {
        const std::string& value = result.*field.value;
        if (!value.empty()) {
            about +=
                (about.empty() ? "" : ", ") + std::string(field.name) + " " + (field.date ? DateText(value) : value);
        }
    }
    std::vector<std::string> lines;
    lines.push_back((result.control ? "control " : "patient ") + (result.patient.empty() ? "-" : result.patient) +
                    (result.Measured().empty() ? "" : ", measured " + DateText(result.Measured())));
    if (!about.empty()) {
        lines.push_back("  " + about);
    }
    std::vector<std::vector<std::string>> rows;
    for (const LabValue& value : result.values) {
        rows.push_back({"  " + value.analyte, value.value, value.unit, value.range, Remarks(value)});
    }
    for (std::string& line : Table(rows)) {
        lines.push_back(std::move(line));
    }
    return lines;
}

json ResultJson(const LabResult& result) {
    json object = {{"kind", result.control ? "control" : "patient"}};
    const auto add = [](json& to, const char* key, const std::string& value) {
        if (!value.empty()) {
            to[key] = value;
        }
    };
    add(object, result.control ? "control" : "patient", result.patient);
    add(object, "measured", result.Measured());
    for (const Field& field : kFields) {
        add(object, field.key, result.*field.value);
    }
    object["values"] = json::array();
    for (const LabValue& value : result.values) {
        json row = json::object();
        for (const ValueField& field : kValueFields) {
            add(row, field.key, value.*field.value);
        }
        object["values"].push_back(std::move(row));
    }
    return object;
}

}  // namespace ZELPC
