#include "hl7wrap/CORL_O34Wrap.h"

#include "hl7wrap/Occurrences.h"

namespace ZELHL7 {

using namespace HL7v251::Segment;

namespace {

constexpr std::string_view kProfile = "LAB-28";

}  // namespace

void CORL_O34Wrap::SetHeader(std::string_view sendingApplication, std::string_view sendingFacility,
                             std::string_view receivingApplication, std::string_view receivingFacility,
                             std::string_view messageControlId) {
    FillHeader(Header(), Acknowledge::kNever, sendingApplication, sendingFacility, receivingApplication,
               receivingFacility, messageControlId);
    FillProfile(Header(), kProfile);
}

void CORL_O34Wrap::SetPatient(std::string_view patientId, std::string_view familyName, std::string_view givenName,
                              std::string_view birthDate, std::string_view sex, std::string_view speciesCode,
                              std::string_view clientId, std::string_view speciesText) {
    FillPatient(MakeFirst<G_ORL_O34_RESPONSE, G_ORL_O34_PATIENT, PID>(Content()), patientId, familyName, givenName,
                birthDate, sex, speciesCode, clientId, speciesText);
}

int CORL_O34Wrap::GetPatient(std::string& patientId, std::string& familyName, std::string& givenName,
                             std::string& birthDate, std::string& sex, std::string& speciesCode, std::string& clientId,
                             std::string& speciesText) const {
    return ReadPatient(FindFirst<G_ORL_O34_RESPONSE, G_ORL_O34_PATIENT, PID>(Content()), patientId, familyName,
                       givenName, birthDate, sex, speciesCode, clientId, speciesText);
}

void CORL_O34Wrap::SetSpecimen(std::string_view specimenId, std::string_view specimenType,
                               std::string_view specimenRole) {
    FillIdentifiedSpecimen(MakeFirst<G_ORL_O34_RESPONSE, G_ORL_O34_PATIENT, G_ORL_O34_SPECIMEN, SPM>(Content()),
                           specimenId, specimenType, specimenRole);
}

int CORL_O34Wrap::GetSpecimen(std::string& specimenId, std::string& specimenType, std::string& specimenRole) const {
    return ReadIdentifiedSpecimen(FindFirst<G_ORL_O34_RESPONSE, G_ORL_O34_PATIENT, G_ORL_O34_SPECIMEN, SPM>(Content()),
                                  specimenId, specimenType, specimenRole);
}

void CORL_O34Wrap::SetContainer(std::string_view containerId, std::string_view carrierId, std::string_view position) {
    FillContainerPlace(MakeFirst<G_ORL_O34_RESPONSE, G_ORL_O34_PATIENT, G_ORL_O34_SPECIMEN, SAC>(Content()),
                       containerId, carrierId, position);
}

int CORL_O34Wrap::GetContainer(std::string& containerId, std::string& carrierId, std::string& position) const {
    return ReadContainerPlace(FindFirst<G_ORL_O34_RESPONSE, G_ORL_O34_PATIENT, G_ORL_O34_SPECIMEN, SAC>(Content()),
                              containerId, carrierId, position);
}

void CORL_O34Wrap::AddOrder(const OrderAnswer& order) {
    auto& orders =
        MakeFirst<G_ORL_O34_RESPONSE, G_ORL_O34_PATIENT, G_ORL_O34_SPECIMEN>(Content()).Child<G_ORL_O34_ORDER>();
    orders.Append();
    ORC& control = orders.GetAt(orders.Count() - 1)->Child<ORC>();
    control.Field<1>().SetValue(order.orderControl);
    control.Field<2>().Component<1>().SetValue(order.placerOrderNumber);
    control.Field<3>().Component<1>().SetValue(order.fillerOrderNumber);
    control.Field<5>().SetValue(order.orderStatus);
    control.Field<9>().Component<1>().SetValue(order.transactionTime);
}

int CORL_O34Wrap::GetOrder(int index, OrderAnswer& order) const {
    const auto* specimen = FindFirst<G_ORL_O34_RESPONSE, G_ORL_O34_PATIENT, G_ORL_O34_SPECIMEN>(Content());
    const G_ORL_O34_ORDER* found = specimen != nullptr ? specimen->Child<G_ORL_O34_ORDER>().GetAt(index) : nullptr;
    if (found == nullptr) {
        return 0;
    }
    const ORC& control = found->Child<ORC>();
    order.orderControl = control.Field<1>().GetValue();
    order.placerOrderNumber = control.Field<2>().Component<1>().GetValue();
    order.fillerOrderNumber = control.Field<3>().Component<1>().GetValue();
    order.orderStatus = control.Field<5>().GetValue();
    order.transactionTime = control.Field<9>().Component<1>().GetValue();
    return 1;
}

}  // namespace ZELHL7
