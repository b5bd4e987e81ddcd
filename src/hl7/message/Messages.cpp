#include "hl7/message/Messages.h"

namespace HL7v251::Message {

namespace {

void PresetDelimitersAndVersion(MSH& header) {
    header.Field<1>().SetValue("|");
    header.Field<2>().SetValue("^~\\&");
    header.Field<12>().Component<1>().SetValue("2.5.1");
}

void Preset(MSH& header, std::string_view code, std::string_view trigger, std::string_view structure) {
    PresetDelimitersAndVersion(header);
    auto& type = header.Field<9>();
    type.Component<1>().SetValue(code);
    type.Component<2>().SetValue(trigger);
    type.Component<3>().SetValue(structure);
    header.Field<11>().Component<1>().SetValue("P");
}

}  // namespace

// An acknowledgement takes its message type from the message that it answers.
ACK::ACK() {
    PresetDelimitersAndVersion(Child<MSH>());
}
OML_O33::OML_O33() {
    Preset(Child<MSH>(), "OML", "O33", "OML_O33");
}
ORL_O34::ORL_O34() {
    Preset(Child<MSH>(), "ORL", "O34", "ORL_O34");
}
OUL_R22::OUL_R22() {
    Preset(Child<MSH>(), "OUL", "R22", "OUL_R22");
}
QBP_Q11::QBP_Q11() {
    Preset(Child<MSH>(), "QBP", "Q11", "QBP_Q11");
}
QBP_Q13::QBP_Q13() {
    Preset(Child<MSH>(), "QBP", "Q13", "QBP_Q13");
}
RSP_K11::RSP_K11() {
    Preset(Child<MSH>(), "RSP", "K11", "RSP_K11");
}
RTB_K13::RTB_K13() {
    Preset(Child<MSH>(), "RTB", "K13", "RTB_K13");
}

ACK::ACK(ACK&&) noexcept = default;
ACK::~ACK() = default;
OML_O33::OML_O33(OML_O33&&) noexcept = default;
OML_O33::~OML_O33() = default;
ORL_O34::ORL_O34(ORL_O34&&) noexcept = default;
ORL_O34::~ORL_O34() = default;
OUL_R22::OUL_R22(OUL_R22&&) noexcept = default;
OUL_R22::~OUL_R22() = default;
QBP_Q11::QBP_Q11(QBP_Q11&&) noexcept = default;
QBP_Q11::~QBP_Q11() = default;
QBP_Q13::QBP_Q13(QBP_Q13&&) noexcept = default;
QBP_Q13::~QBP_Q13() = default;
RSP_K11::RSP_K11(RSP_K11&&) noexcept = default;
RSP_K11::~RSP_K11() = default;
RTB_K13::RTB_K13(RTB_K13&&) noexcept = default;
RTB_K13::~RTB_K13() = default;

}  // namespace HL7v251::Message
