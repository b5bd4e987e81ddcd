#include "hl7wrap/COML_O33Wrap.h"

#include "hl7wrap/Occurrences.h"

namespace ZELHL7 {

using namespace HL7v251::Segment;

namespace {

constexpr std::string_view kProfile = "LAB-28";

}  // namespace

void COML_O33Wrap::SetHeader(std::string_view sendingApplication, std::string_view sendingFacility,
                             std::string_view receivingApplication, std::string_view receivingFacility,
                             std::string_view messageControlId) {
    FillHeader(Header(), Acknowledge::kByApplication, sendingApplication, sendingFacility, receivingApplication,
               receivingFacility, messageControlId);
    FillProfile(Header(), kProfile);
}

void COML_O33Wrap::SetPatient(std::string_view patientId, std::string_view familyName, std::string_view givenName,
                              std::string_view birthDate, std::string_view sex, std::string_view speciesCode,
                              std::string_view clientId, std::string_view speciesText) {
    FillPatient(MakeFirst<G_OML_O33_PATIENT, PID>(Content()), patientId, familyName, givenName, birthDate, sex,
                speciesCode, clientId, speciesText);
}

int COML_O33Wrap::GetPatient(std::string& patientId, std::string& familyName, std::string& givenName,
                             std::string& birthDate, std::string& sex, std::string& speciesCode, std::string& clientId,
                             std::string& speciesText) const {
    return ReadPatient(FindFirst<G_OML_O33_PATIENT, PID>(Content()), patientId, familyName, givenName, birthDate, sex,
                       speciesCode, clientId, speciesText);
}

void COML_O33Wrap::SetVisit(std::string_view patientClass, std::string_view visitNumber) {
    auto& visit = MakeFirst<G_OML_O33_PATIENT, PV1>(Content());
    visit.Field<2>().SetValue(patientClass);
    visit.Field<19>().Component<1>().SetValue(visitNumber);
}

int COML_O33Wrap::GetVisit(std::string& patientClass, std::string& visitNumber) const {
    const PV1* visit = FindFirst<G_OML_O33_PATIENT, PV1>(Content());
    if (visit == nullptr) {
        return 0;
    }
    patientClass = visit->Field<2>().GetValue();
    visitNumber = visit->Field<19>().Component<1>().GetValue();
    return 1;
}

void COML_O33Wrap::SetSpecimen(std::string_view specimenId, std::string_view specimenType,
                               std::string_view specimenRole) {
    FillIdentifiedSpecimen(MakeFirst<G_OML_O33_SPECIMEN, SPM>(Content()), specimenId, specimenType, specimenRole);
}

int COML_O33Wrap::GetSpecimen(std::string& specimenId, std::string& specimenType, std::string& specimenRole) const {
    return ReadIdentifiedSpecimen(FindFirst<G_OML_O33_SPECIMEN, SPM>(Content()), specimenId, specimenType,
                                  specimenRole);
}

void COML_O33Wrap::SetContainer(std::string_view containerId, std::string_view carrierId, std::string_view position) {
    FillContainerPlace(MakeFirst<G_OML_O33_SPECIMEN, SAC>(Content()), containerId, carrierId, position);
}

int COML_O33Wrap::GetContainer(std::string& containerId, std::string& carrierId, std::string& position) const {
    return ReadContainerPlace(FindFirst<G_OML_O33_SPECIMEN, SAC>(Content()), containerId, carrierId, position);
}

void COML_O33Wrap::AddOrder(const WorkOrder& order) {
    auto& orders = MakeFirst<G_OML_O33_SPECIMEN>(Content()).Child<G_OML_O33_ORDER>();
    orders.Append();
    G_OML_O33_ORDER& added = *orders.GetAt(orders.Count() - 1);
    auto& control = added.Child<ORC>();
    control.Field<1>().SetValue(order.orderControl);
    control.Field<2>().Component<1>().SetValue(order.placerOrderNumber);
    control.Field<9>().Component<1>().SetValue(order.transactionTime);
    if (!order.priority.empty()) {
        MakeFirst<TQ1>(added).Field<9>().Component<1>().SetValue(order.priority);
    }
    auto& request = MakeFirst<G_OML_O33_OBSERVATION_REQUEST, OBR>(added);
    request.Field<1>().SetValue(std::to_string(orders.Count()));
    request.Field<2>().Component<1>().SetValue(order.placerOrderNumber);
    request.Field<4>().Component<1>().SetValue(order.serviceId);
    request.Field<4>().Component<2>().SetValue(order.serviceText);
    request.Field<4>().Component<3>().SetValue(kCodingSystem);
    request.Field<16>().Component<1>().SetValue(order.orderingProvider);
}

int COML_O33Wrap::GetOrder(int index, WorkOrder& order) const {
    const G_OML_O33_SPECIMEN* specimen = FindFirst<G_OML_O33_SPECIMEN>(Content());
    const G_OML_O33_ORDER* found = specimen != nullptr ? specimen->Child<G_OML_O33_ORDER>().GetAt(index) : nullptr;
    if (found == nullptr) {
        return 0;
    }
    order = WorkOrder{};
    const ORC& control = found->Child<ORC>();
    order.orderControl = control.Field<1>().GetValue();
    order.placerOrderNumber = control.Field<2>().Component<1>().GetValue();
    order.transactionTime = control.Field<9>().Component<1>().GetValue();
    if (const TQ1* timing = FindFirst<TQ1>(*found); timing != nullptr) {
        order.priority = timing->Field<9>().Component<1>().GetValue();
    }
    if (const OBR* request = FindFirst<G_OML_O33_OBSERVATION_REQUEST, OBR>(*found); request != nullptr) {
        order.serviceId = request->Field<4>().Component<1>().GetValue();
        order.serviceText = request->Field<4>().Component<2>().GetValue();
        order.orderingProvider = request->Field<16>().Component<1>().GetValue();
    }
    return 1;
}

}  // namespace ZELHL7
