#include "hl7wrap/CACKWrap.h"

namespace ZELHL7 {

void CACKWrap::SetHeader(std::string_view sendingApplication, std::string_view sendingFacility,
                         std::string_view receivingApplication, std::string_view receivingFacility,
                         std::string_view messageControlId) {
    FillHeader(Header(), Acknowledge::kNever, sendingApplication, sendingFacility, receivingApplication,
               receivingFacility, messageControlId);
}

void CACKWrap::SetMessageType(std::string_view triggerEvent) {
    auto& type = Header().Field<9>();
    type.Component<1>().SetValue("ACK");
    type.Component<2>().SetValue(triggerEvent);
    type.Component<3>().SetValue("ACK");
}

int CACKWrap::GetMessageType(std::string& triggerEvent) const {
    triggerEvent = Header().Field<9>().Component<2>().GetValue();
    return 1;
}

}  // namespace ZELHL7
