#include "hl7wrap/CRTB_K13Wrap.h"

#include "hl7wrap/Occurrences.h"

namespace ZELHL7 {

using namespace HL7v251::Segment;

void CRTB_K13Wrap::SetHeader(std::string_view sendingApplication, std::string_view sendingFacility,
                             std::string_view receivingApplication, std::string_view receivingFacility,
                             std::string_view messageControlId) {
    FillHeader(Header(), Acknowledge::kNever, sendingApplication, sendingFacility, receivingApplication,
               receivingFacility, messageControlId);
}

void CRTB_K13Wrap::SetQueryStatus(std::string_view queryTag, std::string_view status, std::string_view rowsFound,
                                  std::string_view rowsHere, std::string_view rowsRemaining) {
    auto& answer = MakeFirst<QAK>(Content());
    answer.Field<1>().SetValue(queryTag);
    answer.Field<2>().SetValue(status);
    answer.Field<4>().SetValue(rowsFound);
    answer.Field<5>().SetValue(rowsHere);
    answer.Field<6>().SetValue(rowsRemaining);
}

int CRTB_K13Wrap::GetQueryStatus(std::string& queryTag, std::string& status, std::string& rowsFound,
                                 std::string& rowsHere, std::string& rowsRemaining) const {
    const QAK& answer = *FindFirst<QAK>(Content());
    queryTag = answer.Field<1>().GetValue();
    status = answer.Field<2>().GetValue();
    rowsFound = answer.Field<4>().GetValue();
    rowsHere = answer.Field<5>().GetValue();
    rowsRemaining = answer.Field<6>().GetValue();
    return 1;
}

void CRTB_K13Wrap::SetQuery(std::string_view nameCode, std::string_view nameText, std::string_view queryTag,
                            std::string_view parameter) {
    FillQuery(MakeFirst<QPD>(Content()), nameCode, nameText, queryTag, parameter);
}

int CRTB_K13Wrap::GetQuery(std::string& nameCode, std::string& nameText, std::string& queryTag,
                           std::string& parameter) const {
    return ReadQuery(*FindFirst<QPD>(Content()), nameCode, nameText, queryTag, parameter);
}

void CRTB_K13Wrap::SetColumn(std::string_view name, std::string_view dataType, std::string_view maximumWidth) {
    FillColumn(MakeFirst<G_RTB_K13_ROW_DEFINITION, RDF>(Content()), name, dataType, maximumWidth);
}

int CRTB_K13Wrap::GetColumn(std::string& name, std::string& dataType, std::string& maximumWidth) const {
    return ReadColumn(FindFirst<G_RTB_K13_ROW_DEFINITION, RDF>(Content()), name, dataType, maximumWidth);
}

void CRTB_K13Wrap::AddRow(std::string_view value) {
    auto& rows = MakeFirst<G_RTB_K13_ROW_DEFINITION>(Content()).Child<RDT>();
    rows.Append();
    rows.GetAt(rows.Count() - 1)->Field<1>().SetValue(value);
}

int CRTB_K13Wrap::GetRow(int index, std::string& value) const {
    const auto* table = FindFirst<G_RTB_K13_ROW_DEFINITION>(Content());
    const RDT* row = table != nullptr ? table->Child<RDT>().GetAt(index) : nullptr;
    if (row == nullptr) {
        return 0;
    }
    value = row->Field<1>().GetValue();
    return 1;
}

}  // namespace ZELHL7
