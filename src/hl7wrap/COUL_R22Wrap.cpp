#include "hl7wrap/COUL_R22Wrap.h"

#include "hl7wrap/Occurrences.h"

namespace ZELHL7 {

using namespace HL7v251::Segment;

namespace {

constexpr std::string_view kProfile = "LAB-29";
constexpr std::string_view kWholeBlood = "BLD";
constexpr std::string_view kOrderControl = "SC";
// Stands for "no LOINC code": the observation is coded by the analyzer's own identifier.
constexpr std::string_view kNoLoincCode = "0";

}  // namespace

void COUL_R22Wrap::SetHeader(std::string_view sendingApplication, std::string_view sendingFacility,
                             std::string_view receivingApplication, std::string_view receivingFacility,
                             std::string_view messageControlId) {
    FillHeader(Header(), Acknowledge::kByApplication, sendingApplication, sendingFacility, receivingApplication,
               receivingFacility, messageControlId);
    FillProfile(Header(), kProfile);
}

void COUL_R22Wrap::SetPatient(std::string_view patientId, std::string_view familyName, std::string_view givenName,
                              std::string_view birthDate, std::string_view sex, std::string_view speciesCode,
                              std::string_view clientId, std::string_view speciesText) {
    FillPatient(MakeFirst<PID>(Content()), patientId, familyName, givenName, birthDate, sex, speciesCode, clientId,
                speciesText);
}

int COUL_R22Wrap::GetPatient(std::string& patientId, std::string& familyName, std::string& givenName,
                             std::string& birthDate, std::string& sex, std::string& speciesCode, std::string& clientId,
                             std::string& speciesText) const {
    return ReadPatient(FindFirst<PID>(Content()), patientId, familyName, givenName, birthDate, sex, speciesCode,
                       clientId, speciesText);
}

void COUL_R22Wrap::SetSpecimen(std::string_view specimenType, std::string_view specimenRole) {
    FillSpecimen(MakeFirst<G_OUL_R22_SPECIMEN, SPM>(Content()), specimenType, specimenRole);
}

void COUL_R22Wrap::SetSpecimen(std::string_view specimenRole) {
    SetSpecimen(kWholeBlood, specimenRole);
}

int COUL_R22Wrap::GetSpecimen(std::string& specimenType, std::string& specimenRole) const {
    return ReadSpecimen(FindFirst<G_OUL_R22_SPECIMEN, SPM>(Content()), specimenType, specimenRole);
}

void COUL_R22Wrap::SetContainer(std::string_view hemolysisIndex, std::string_view lipemiaIndex,
                                std::string_view icterusIndex, std::string_view reagentVersion) {
    SetContainer(hemolysisIndex, lipemiaIndex, icterusIndex);
    auto& additive = MakeFirst<G_OUL_R22_SPECIMEN, G_OUL_R22_CONTAINER, SAC>(Content()).Field<43>();
    additive.Component<1>().SetValue(reagentVersion);
    additive.Component<2>().SetValue("ReagentVersion");
    additive.Component<3>().SetValue(kCodingSystem);
}

void COUL_R22Wrap::SetContainer(std::string_view hemolysisIndex, std::string_view lipemiaIndex,
                                std::string_view icterusIndex) {
    auto& container = MakeFirst<G_OUL_R22_SPECIMEN, G_OUL_R22_CONTAINER, SAC>(Content());
    container.Field<32>().SetValue(hemolysisIndex);
    container.Field<34>().SetValue(lipemiaIndex);
    container.Field<36>().SetValue(icterusIndex);
}

int COUL_R22Wrap::GetContainer(std::string& hemolysisIndex, std::string& lipemiaIndex, std::string& icterusIndex,
                               std::string& reagentVersion) const {
    const SAC* container = FindFirst<G_OUL_R22_SPECIMEN, G_OUL_R22_CONTAINER, SAC>(Content());
    if (container == nullptr) {
        return 0;
    }
    hemolysisIndex = container->Field<32>().GetValue();
    lipemiaIndex = container->Field<34>().GetValue();
    icterusIndex = container->Field<36>().GetValue();
    reagentVersion = container->Field<43>().Component<1>().GetValue();
    return 1;
}

void COUL_R22Wrap::SetInventory(std::string_view substanceText, std::string_view substanceAltText,
                                std::string_view lotNumber, std::string_view expirationDate) {
    auto& inventory = MakeFirst<G_OUL_R22_SPECIMEN, G_OUL_R22_CONTAINER, INV>(Content());
    inventory.Field<1>().Component<2>().SetValue(substanceText);
    inventory.Field<1>().Component<5>().SetValue(substanceAltText);
    inventory.Field<16>().SetValue(lotNumber);
    inventory.Field<12>().Component<1>().SetValue(expirationDate);
}

int COUL_R22Wrap::GetInventory(std::string& substanceText, std::string& substanceAltText, std::string& lotNumber,
                               std::string& expirationDate) const {
    const INV* inventory = FindFirst<G_OUL_R22_SPECIMEN, G_OUL_R22_CONTAINER, INV>(Content());
    if (inventory == nullptr) {
        return 0;
    }
    substanceText = inventory->Field<1>().Component<2>().GetValue();
    substanceAltText = inventory->Field<1>().Component<5>().GetValue();
    lotNumber = inventory->Field<16>().GetValue();
    expirationDate = inventory->Field<12>().Component<1>().GetValue();
    return 1;
}

void COUL_R22Wrap::SetOrder(std::string_view placerOrderNumber, std::string_view serviceId,
                            std::string_view serviceText, std::string_view orderingProvider) {
    auto& order = MakeFirst<G_OUL_R22_SPECIMEN, G_OUL_R22_ORDER, OBR>(Content());
    order.Field<2>().Component<1>().SetValue(placerOrderNumber);
    order.Field<4>().Component<1>().SetValue(serviceId);
    order.Field<4>().Component<2>().SetValue(serviceText);
    order.Field<4>().Component<3>().SetValue(kCodingSystem);
    order.Field<16>().Component<1>().SetValue(orderingProvider);
}

int COUL_R22Wrap::GetOrder(std::string& placerOrderNumber, std::string& serviceId, std::string& serviceText,
                           std::string& orderingProvider) const {
    const OBR* order = FindFirst<G_OUL_R22_SPECIMEN, G_OUL_R22_ORDER, OBR>(Content());
    if (order == nullptr) {
        return 0;
    }
    placerOrderNumber = order->Field<2>().Component<1>().GetValue();
    serviceId = order->Field<4>().Component<1>().GetValue();
    serviceText = order->Field<4>().Component<2>().GetValue();
    orderingProvider = order->Field<16>().Component<1>().GetValue();
    return 1;
}

void COUL_R22Wrap::SetOrderControl(std::string_view placerOrderNumber, std::string_view transactionTime) {
    auto& control = MakeFirst<G_OUL_R22_SPECIMEN, G_OUL_R22_ORDER, ORC>(Content());
    control.Field<1>().SetValue(kOrderControl);
    control.Field<2>().Component<1>().SetValue(placerOrderNumber);
    control.Field<9>().Component<1>().SetValue(transactionTime);
}

int COUL_R22Wrap::GetOrderControl(std::string& placerOrderNumber, std::string& transactionTime) const {
    const ORC* control = FindFirst<G_OUL_R22_SPECIMEN, G_OUL_R22_ORDER, ORC>(Content());
    if (control == nullptr) {
        return 0;
    }
    placerOrderNumber = control->Field<2>().Component<1>().GetValue();
    transactionTime = control->Field<9>().Component<1>().GetValue();
    return 1;
}

void COUL_R22Wrap::AddObservation(const Observation& observation) {
    auto& results = MakeFirst<G_OUL_R22_SPECIMEN, G_OUL_R22_ORDER>(Content()).Child<G_OUL_R22_RESULT>();
    results.Append();
    OBX& obx = results.GetAt(results.Count() - 1)->Child<OBX>();
    obx.Field<1>().SetValue(std::to_string(results.Count()));
    // Results of the analyzer leave these empty, and a field that is never touched costs nothing.
    if (!observation.valueType.empty()) {
        obx.Field<2>().SetValue(observation.valueType);
    }
    const bool ownCode = observation.loincCode == kNoLoincCode;
    const std::string& code = ownCode ? observation.observationId : observation.loincCode;
    if (!code.empty()) {
        obx.Field<3>().Component<1>().SetValue(code);
    }
    if (!observation.observationId.empty()) {
        obx.Field<3>().Component<2>().SetValue(observation.observationId);
    }
    obx.Field<3>().Component<3>().SetValue(ownCode ? kCodingSystem : "LN");
    obx.Field<4>().SetValue(observation.subId);
    obx.Field<5>().SetValue(observation.value);
    obx.Field<6>().Component<1>().SetValue(observation.units);
    obx.Field<7>().SetValue(observation.referenceRange);
    if (!observation.abnormalFlags.empty()) {
        obx.Field<8>().SetValue(observation.abnormalFlags);
    }
    obx.Field<11>().SetValue("F");
    obx.Field<13>().SetValue(observation.userDefinedChecks);
    obx.Field<16>().Component<1>().SetValue(observation.responsibleObserver);
    // Two equipment identifiers in one field: the model knows no repetition, so the value brings its separators along.
    obx.Field<18>().Component<1>().SetValue(observation.equipmentId1 + "^Kelvora~" + observation.equipmentId2 +
                                            "^Kelvora");
    obx.Field<19>().Component<1>().SetValue(observation.analysisTime);
}

int COUL_R22Wrap::GetObservation(int index, Observation& observation) const {
    const G_OUL_R22_ORDER* order = FindFirst<G_OUL_R22_SPECIMEN, G_OUL_R22_ORDER>(Content());
    const G_OUL_R22_RESULT* result = order != nullptr ? order->Child<G_OUL_R22_RESULT>().GetAt(index) : nullptr;
    if (result == nullptr) {
        return 0;
    }
    const OBX& obx = result->Child<OBX>();
    observation.valueType = obx.Field<2>().GetValue();
    observation.loincCode = obx.Field<3>().Component<1>().GetValue();
    observation.observationId = obx.Field<3>().Component<2>().GetValue();
    observation.subId = obx.Field<4>().GetValue();
    observation.value = obx.Field<5>().GetValue();
    observation.units = obx.Field<6>().Component<1>().GetValue();
    observation.referenceRange = obx.Field<7>().GetValue();
    observation.abnormalFlags = obx.Field<8>().GetValue();
    observation.userDefinedChecks = obx.Field<13>().GetValue();
    observation.responsibleObserver = obx.Field<16>().Component<1>().GetValue();
    observation.analysisTime = obx.Field<19>().Component<1>().GetValue();
    return 1;
}

void COUL_R22Wrap::SetSubstanceLot(std::string_view lotNumber) {
    MakeFirst<G_OUL_R22_SPECIMEN, G_OUL_R22_ORDER, G_OUL_R22_RESULT, SID>(Content()).Field<2>().SetValue(lotNumber);
}

int COUL_R22Wrap::GetSubstanceLot(std::string& lotNumber) const {
    const SID* substance = FindFirst<G_OUL_R22_SPECIMEN, G_OUL_R22_ORDER, G_OUL_R22_RESULT, SID>(Content());
    if (substance == nullptr) {
        return 0;
    }
    lotNumber = substance->Field<2>().GetValue();
    return 1;
}

}  // namespace ZELHL7
