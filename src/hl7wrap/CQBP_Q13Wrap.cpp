#include "hl7wrap/CQBP_Q13Wrap.h"

#include "hl7wrap/Occurrences.h"

namespace ZELHL7 {

using namespace HL7v251::Segment;

void CQBP_Q13Wrap::SetHeader(std::string_view sendingApplication, std::string_view sendingFacility,
                             std::string_view receivingApplication, std::string_view receivingFacility,
                             std::string_view messageControlId) {
    FillHeader(Header(), Acknowledge::kByApplication, sendingApplication, sendingFacility, receivingApplication,
               receivingFacility, messageControlId);
    Header().Field<9>().Component<3>().SetValue("QBP_Q13");
}

void CQBP_Q13Wrap::SetQuery(std::string_view nameCode, std::string_view nameText, std::string_view queryTag,
                            std::string_view parameter) {
    FillQuery(MakeFirst<QPD>(Content()), nameCode, nameText, queryTag, parameter);
}

int CQBP_Q13Wrap::GetQuery(std::string& nameCode, std::string& nameText, std::string& queryTag,
                           std::string& parameter) const {
    return ReadQuery(*FindFirst<QPD>(Content()), nameCode, nameText, queryTag, parameter);
}

void CQBP_Q13Wrap::SetColumn(std::string_view name, std::string_view dataType, std::string_view maximumWidth) {
    FillColumn(MakeFirst<RDF>(Content()), name, dataType, maximumWidth);
}

int CQBP_Q13Wrap::GetColumn(std::string& name, std::string& dataType, std::string& maximumWidth) const {
    return ReadColumn(FindFirst<RDF>(Content()), name, dataType, maximumWidth);
}

void CQBP_Q13Wrap::SetResponseControl(std::string_view priority, std::string_view maximumRows,
                                      std::string_view modality) {
    auto& control = MakeFirst<RCP>(Content());
    control.Field<1>().SetValue(priority);
    control.Field<2>().Component<1>().SetValue(maximumRows);
    control.Field<2>().Component<2>().Component<1>().SetValue("RD");
    control.Field<3>().Component<1>().SetValue(modality);
}

int CQBP_Q13Wrap::GetResponseControl(std::string& priority, std::string& maximumRows, std::string& modality) const {
    const RCP& control = *FindFirst<RCP>(Content());
    priority = control.Field<1>().GetValue();
    maximumRows = control.Field<2>().Component<1>().GetValue();
    modality = control.Field<3>().Component<1>().GetValue();
    return 1;
}

}  // namespace ZELHL7
