#include "deliver/Standard.h"

#include <algorithm>
#include <cctype>

#include "hl7/message/Messages.h"

namespace ZELPC {

using namespace HL7v251::Segment;
using HL7v251::Base::HL7DataType;
using HL7v251::Base::HL7PartOwner;

namespace {

constexpr std::string_view kUnknown = "NULL";  // what the analyzer writes where it knows nothing

bool AreDigits(std::string_view text) {
    return !text.empty() && std::ranges::all_of(text, [](unsigned char byte) { return std::isdigit(byte) != 0; });
}

/// HL7's NM: an optional sign, digits, an optional point and digits. No exponent, no "<".
bool IsNumber(std::string_view text) {
    if (text.starts_with('-') || text.starts_with('+')) {
        text.remove_prefix(1);
    }
    const std::size_t point = std::min(text.find('.'), text.size());
    return AreDigits(text.substr(0, point)) && (point == text.size() || AreDigits(text.substr(point + 1)));
}

void SetIfGiven(HL7DataType& value, const std::string& name) {
    if (!name.empty()) {
        value.SetValue(name);
    }
}

void Empty(HL7DataType& value) {
    if (value.GetValue() == kUnknown) {
        value.SetValue("");
    }
}

/// "2024-12-31" or "2024-12-31 07:30:00" as HL7 writes it. What is no such date stays as it is.
void SetDate(HL7DataType& value) {
    constexpr std::string_view kForm = "0000-00-00 00:00:00";
    const std::string_view text = value.GetValue();
    if (text.size() != 10 && text.size() != kForm.size()) {
        return;
    }
    std::string digits;
    for (std::size_t position = 0; position < text.size(); ++position) {
        const bool isDigit = std::isdigit(static_cast<unsigned char>(text[position])) != 0;
        const bool separates = kForm[position] != '0';
        if (isDigit == separates || (separates && text[position] != kForm[position] && text[position] != 'T')) {
            return;
        }
        if (isDigit) {
            digits += text[position];
        }
    }
    value.SetValue(digits);
}

/// The analyzer escapes nothing, so a delimiter that arrived inside a value is part of it.
void Escape(HL7DataType& value) {
    const std::string_view text = value.GetValue();
    if (text.find_first_of("\\&~") == text.npos) {
        return;
    }
    std::string escaped;
    for (const char byte : text) {
        switch (byte) {
            case '\\':
                escaped += "\\E\\";
                break;
            case '&':
                escaped += "\\T\\";
                break;
            case '~':
                escaped += "\\R\\";
                break;
            default:
                escaped += byte;
        }
    }
    value.SetValue(escaped);
}

/// Escapes all values of a segment or composite but those of the field `except`, counted from 0.
void EscapeParts(HL7PartOwner& owner, std::size_t except) {
    for (std::size_t index = 0; index < owner.Count(); ++index) {
        if (index == except || owner.At(index) == nullptr) {
            continue;
        }
        if (auto* const value = dynamic_cast<HL7DataType*>(&owner.Make(index))) {
            Escape(*value);
        } else if (auto* const composite = dynamic_cast<HL7PartOwner*>(&owner.Make(index))) {
            EscapeParts(*composite, composite->Count());
        }
    }
}

void EscapeAll(HL7PartOwner& segment) {
    EscapeParts(segment, segment.Count());
}

/// Calls `work` for each occurrence.
template <class Occurrences, class Work>
void Each(Occurrences& occurrences, Work work) {
    for (int index = 0; index < occurrences.Count(); ++index) {
        work(*occurrences.GetAt(index));
    }
}

/// Some receivers end segments at a line feed, too, and would read more of them than the analyzer wrote.
bool HasControls(std::string_view text) {
    return std::ranges::any_of(text, [](unsigned char byte) { return byte < ' ' && byte != '\r' && byte != '\t'; });
}

class CStandard {
public:
    CStandard(std::string_view controlId, const DestinationOptions& options)
        : controlId_(controlId), options_(options) {}

    void Change(HL7v251::Message::OUL_R22& message) {
        ChangeHeader(message.Child<MSH>());
        Each(message.Child<PID>(), [](PID& patient) {
            SetDate(patient.Field<7>().Component<1>());
            EscapeAll(patient);
        });
        Each(message.Child<PV1>(), &EscapeAll);
        Each(message.Child<G_OUL_R22_SPECIMEN>(), [this](G_OUL_R22_SPECIMEN& specimen) { ChangeSpecimen(specimen); });
    }

private:
    void ChangeHeader(MSH& header) {
        Empty(header.Field<3>().Component<1>());
        Empty(header.Field<4>().Component<1>());
        Empty(header.Field<5>().Component<1>());
        Empty(header.Field<6>().Component<1>());
        SetIfGiven(header.Field<3>().Component<1>(), options_.names.sendingApplication);
        SetIfGiven(header.Field<4>().Component<1>(), options_.names.sendingFacility);
        SetIfGiven(header.Field<5>().Component<1>(), options_.names.receivingApplication);
        SetIfGiven(header.Field<6>().Component<1>(), options_.names.receivingFacility);
        header.Field<10>().SetValue(controlId_);
        constexpr std::size_t kDelimiters = 1;  // MSH-2
        EscapeParts(header, kDelimiters);
    }

    void ChangeSpecimen(G_OUL_R22_SPECIMEN& specimen) {
        control_ = specimen.Child<SPM>().Field<11>().Component<1>().GetValue() == "Q";
        EscapeAll(specimen.Child<SPM>());
        Each(specimen.Child<OBX>(), [this](OBX& observation) { ChangeObservation(observation); });
        Each(specimen.Child<G_OUL_R22_CONTAINER>(), [](G_OUL_R22_CONTAINER& container) {
            EscapeAll(container.Child<SAC>());
            Each(container.Child<INV>(), [](INV& inventory) {
                SetDate(inventory.Field<12>().Component<1>());
                EscapeAll(inventory);
            });
        });
        Each(specimen.Child<G_OUL_R22_ORDER>(), [this](G_OUL_R22_ORDER& order) { ChangeOrder(order); });
    }

    void ChangeOrder(G_OUL_R22_ORDER& order) {
        OBR& request = order.Child<OBR>();
        Empty(request.Field<2>().Component<1>());
        Empty(request.Field<16>().Component<1>());
        EscapeAll(request);
        Each(order.Child<ORC>(), [](ORC& control) {
            Empty(control.Field<2>().Component<1>());
            Empty(control.Field<9>().Component<1>());
            EscapeAll(control);
        });
        Each(order.Child<G_OUL_R22_RESULT>(), [this](G_OUL_R22_RESULT& result) {
            ChangeObservation(result.Child<OBX>());
            Each(result.Child<TCD>(), &EscapeAll);
            Each(result.Child<SID>(), &EscapeAll);
            Each(result.Child<NTE>(), &EscapeAll);
        });
    }

    void ChangeObservation(OBX& observation) {
        const std::string analyte(observation.Field<4>().GetValue());
        const std::string_view value = observation.Field<5>().GetValue();
        if (observation.Field<2>().GetValue().empty() && !value.empty()) {
            observation.Field<2>().SetValue(IsNumber(value) ? "NM" : "ST");
        }
        if (!analyte.empty() && observation.Field<3>().Component<1>().GetValue().empty()) {
            const auto code = options_.loinc.find(analyte);
            const bool known = code != options_.loinc.end();
            observation.Field<3>().Component<1>().SetValue(known ? code->second : analyte);
            observation.Field<3>().Component<2>().SetValue(analyte);
            // Without a code of the table it is the analyzer's own name, and must not pass for a LOINC code.
            observation.Field<3>().Component<3>().SetValue(known ? "LN" : "ORVELA");
        }
        // "0-0" of a patient says that ranges are switched off, "-" that none is stored; read as a range, either lies.
        if (const std::string_view range = observation.Field<7>().GetValue();
            range == "-" || (range == "0-0" && !control_)) {
            observation.Field<7>().SetValue("");
        }
        SetDate(observation.Field<19>().Component<1>());
        constexpr std::size_t kEquipment = 17;  // OBX-18 holds two identifiers with a separator that is meant as one
        EscapeParts(observation, kEquipment);
    }

    const std::string_view controlId_;
    const DestinationOptions& options_;
    bool control_ = false;
};

}  // namespace

StandardText MakeStandard(std::string_view text, std::string_view controlId, const DestinationOptions& options) {
    if (HasControls(text)) {
        return {{}, "the result has a control character"};
    }
    HL7v251::Message::OUL_R22 message;
    std::string_view rest = text;
    if (message.DecodeFrom(rest) != HL7v251::Base::kDecoded) {
        return {{}, "the result cannot be read"};
    }
    if (!rest.empty()) {
        return {{}, "the result has a segment \"" + std::string(rest.substr(0, 3)) + "\" where none is known"};
    }
    std::string again;
    message.EncodeTo(again);
    if (again != text) {
        return {{}, "the result has parts that would be lost"};
    }
    CStandard(controlId, options).Change(message);
    StandardText standard;
    message.EncodeTo(standard.text);
    return standard;
}

}  // namespace ZELPC
