#include "result/LabResult.h"

#include <algorithm>

#include "hl7wrap/COUL_R22Wrap.h"

namespace ZELPC {

namespace {

/// A text of a message for people: the analyzer's words for "nothing" are nothing, control characters are "?".
std::string Plain(std::string text) {
    if (text == "NULL" || text == "EMPTY") {
        return {};
    }
    std::ranges::replace_if(
        text, [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7F'; }, '?');
    return text;
}

/// OBX-13: a list joined by commas, read by position.
std::vector<std::string> Checks(const std::string& text) {
    std::vector<std::string> list;
    for (std::size_t start = 0; start <= text.size();) {
        const std::size_t end = std::min(text.find(',', start), text.size());
        list.push_back(Plain(text.substr(start, end - start)));
        start = end + 1;
    }
    list.resize(std::max<std::size_t>(list.size(), 10));
    return list;
}

std::string Range(const std::string& from, const std::string& to) {
    return from.empty() && to.empty() ? std::string() : from + "-" + to;
}

/// OBX-7. "0-0" says that ranges are switched off, "-" that none is stored.
std::string ReferenceRange(const std::string& text, bool control) {
    return text == "-" || (text == "0-0" && !control) ? std::string() : Plain(text);
}

LabValue ReadValue(const ZELHL7::Observation& observation, LabResult& result) {
    const std::vector<std::string> checks = Checks(observation.userDefinedChecks);
    LabValue value;
    value.analyte = Plain(observation.subId);
    value.value = Plain(observation.value);
    value.unit = Plain(observation.units);
    value.range = ReferenceRange(observation.referenceRange, result.control);
    value.errorCode = checks[0];
    value.errorLevel = checks[1];
    value.qcFlag = checks[2];
    if (result.control) {
        value.rule = checks[3];
        value.ruleFlag = checks[4];
        value.limits = Range(checks[5], checks[6]);
    } else if (result.age.empty()) {
        result.age = checks[7];
    }
    value.dynamicRange = Range(checks[8], checks[9]);
    value.measured = Plain(observation.analysisTime);
    value.operatorID = Plain(observation.responsibleObserver);
    return value;
}

void ReadPatient(const ZELHL7::COUL_R22Wrap& message, LabResult& result) {
    ZELHL7::Patient patient;
    (void)message.GetPatient(patient);
    result.patient = Plain(patient.patientId);
    result.birth = Plain(patient.birthDate);
    result.sex = Plain(patient.sex);
    result.client = Plain(patient.clientId);
    result.species = Plain(patient.speciesCode);
    result.speciesName = Plain(patient.speciesText);
}

void ReadContainer(const ZELHL7::COUL_R22Wrap& message, LabResult& result) {
    ZELHL7::Container container;
    (void)message.GetContainer(container);
    result.hemolysis = Plain(container.hemolysisIndex);
    result.lipemia = Plain(container.lipemiaIndex);
    result.icterus = Plain(container.icterusIndex);
    result.reagentVersion = Plain(container.reagentVersion);
    ZELHL7::Inventory material;
    (void)message.GetInventory(material);
    result.materialName = Plain(material.substanceText);
    result.materialLevel = Plain(material.substanceAltText);
    result.materialLot = Plain(material.lotNumber);
    result.materialExpiry = Plain(material.expirationDate);
}

void ReadOrder(const ZELHL7::COUL_R22Wrap& message, LabResult& result) {
    ZELHL7::Order order;
    (void)message.GetOrder(order);
    result.panelSerial = Plain(order.serviceId);
    result.panel = Plain(order.serviceText);
    ZELHL7::SubstanceLot lot;
    (void)message.GetSubstanceLot(lot);
    result.lot = Plain(lot.lotNumber);
}

constexpr std::string_view kHeaderName = "MSH|";

/// Where MSH-7, which the wrapper does not tell, stands in a text.
struct Place {
    std::size_t begin = 0;
    std::size_t size = 0;
};

Place BuildTime(std::string_view text) {
    constexpr int kField = 7;
    const std::string_view header = text.substr(0, text.find('\r'));
    std::size_t begin = 0;
    for (int field = 1; field < kField && begin < header.size(); ++field) {
        begin = std::min(header.find('|', begin), header.size() - 1) + 1;
    }
    return {begin, std::min(header.find('|', begin), header.size()) - begin};
}

bool DecodeResult(std::string_view text, ZELHL7::COUL_R22Wrap& message, ZELHL7::Specimen& specimen) {
    return HoldsResult(text) && message.Decode(text) == 1 && message.GetSpecimen(specimen) != 0;
}

}  // namespace

std::string LabResult::Measured() const {
    const auto told = std::ranges::find_if(values, [](const LabValue& value) { return !value.measured.empty(); });
    return told == values.end() ? std::string() : told->measured;
}

bool HoldsResult(std::string_view text) {
    const std::size_t end = text.find('\r');
    return text.starts_with(kHeaderName) && end != std::string_view::npos && end + 1 < text.size();
}

std::string WithoutBuildTime(std::string_view text) {
    std::string same(text);
    if (text.starts_with(kHeaderName)) {
        const Place built = BuildTime(text);
        same.erase(built.begin, built.size);
    }
    return same;
}

std::optional<LabSummary> ReadLabSummary(std::string_view text) {
    ZELHL7::COUL_R22Wrap message;
    ZELHL7::Specimen specimen;
    if (!DecodeResult(text, message, specimen)) {
        return std::nullopt;
    }
    ZELHL7::Patient patient;
    (void)message.GetPatient(patient);
    ZELHL7::Order order;
    (void)message.GetOrder(order);
    LabSummary summary{specimen.specimenRole == "Q", Plain(patient.patientId), Plain(order.serviceText), {}};
    ZELHL7::Observation observation;
    for (int i = 0; summary.measured.empty() && message.GetObservation(i, observation) != 0; ++i) {
        if (!Plain(observation.subId).empty() || !Plain(observation.value).empty()) {
            summary.measured = Plain(observation.analysisTime);
        }
    }
    return summary;
}

std::optional<LabResult> ReadLabResult(std::string_view text) {
    ZELHL7::COUL_R22Wrap message;
    ZELHL7::Specimen specimen;
    if (!DecodeResult(text, message, specimen)) {
        return std::nullopt;
    }
    LabResult result;
    result.control = specimen.specimenRole == "Q";
    result.specimen = Plain(specimen.specimenType);
    const Place built = BuildTime(text);
    result.built = Plain(std::string(text.substr(built.begin, built.size)));
    ReadPatient(message, result);
    ReadContainer(message, result);
    ReadOrder(message, result);
    ZELHL7::Observation observation;
    for (int i = 0; message.GetObservation(i, observation) != 0; ++i) {
        LabValue value = ReadValue(observation, result);
        // A result without analytes has one empty observation, for the lot to follow.
        if (!value.analyte.empty() || !value.value.empty()) {
            result.values.push_back(std::move(value));
        }
    }
    return result;
}

}  // namespace ZELPC
