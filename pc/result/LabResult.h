#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ZELPC {

/// One measured analyte, as the analyzer said it. "NULL" and "EMPTY" read as nothing.
struct LabValue {
    std::string analyte;
    std::string value;
    std::string unit;
    std::string range;  ///< "7.5-27.5"; empty when there is none or ranges are switched off
    std::string qcFlag;
    std::string errorCode;
    std::string errorLevel;
    std::string rule;  ///< of a control: the rule that was chosen
    std::string ruleFlag;
    std::string limits;        ///< of a control: "35.5-45.5"
    std::string dynamicRange;  ///< "2.5-900.5", when the analyzer tells it
    std::string measured;      ///< "YYYYMMDDhhmmss" or "YYYYMMDD", the analyzer's local time
    std::string operatorID;
};

/// What one result message says (docs/hl7.md), for people and for search. What the message does not hold is empty.
struct LabResult {
    bool control = false;  ///< a quality control; otherwise a patient
    std::string patient;   ///< of a control: the control
    std::string birth;     ///< "YYYYMMDD"
    std::string sex;
    std::string client;       ///< an animal's owner
    std::string species;      ///< code
    std::string speciesName;  ///< in words
    std::string age;
    std::string specimen;  ///< type, "SER"
    std::string hemolysis;
    std::string lipemia;
    std::string icterus;
    std::string reagentVersion;
    std::string panelSerial;
    std::string panel;
    std::string lot;
    std::string materialName;  ///< of a control: the control material
    std::string materialLevel;
    std::string materialLot;
    std::string materialExpiry;
    std::string built;  ///< MSH-7
    std::vector<LabValue> values;

    /// When it was measured: of the first value that tells it.
    std::string Measured() const;
};

/// What a result is searched by: the same as LabResult tells.
struct LabSummary {
    bool control = false;
    std::string patient;
    std::string panel;
    std::string measured;
};

/// Whether a result's text holds a result: a message header and something behind it. A header alone and an empty text
/// are what an analyzer sends when it cannot read its own database; acknowledged, they would mark a result that nobody
/// has.
[[nodiscard]] bool HoldsResult(std::string_view text);

/// The text without MSH-7, the time at which the message was built: the same for the same result sent again.
[[nodiscard]] std::string WithoutBuildTime(std::string_view text);

/// Reads a result's text. None when it is not an OUL^R22 that holds something: another message, a header alone,
/// nothing, or garbage. Texts hold no control characters.
[[nodiscard]] std::optional<LabResult> ReadLabResult(std::string_view text);

/// The same for the summary alone, in a third of the time: an analyzer waits meanwhile.
[[nodiscard]] std::optional<LabSummary> ReadLabSummary(std::string_view text);

}  // namespace ZELPC
