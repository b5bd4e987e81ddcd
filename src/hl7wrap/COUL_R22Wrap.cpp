#include "hl7wrap/COUL_R22Wrap.h"

namespace ZELHL7 {

using namespace HL7v251::Segment;

void COUL_R22Wrap::AddObservation(const Observation& observation) {
    auto& results = Make<Group, Orders>().Child<Results>();
    OBX& obx = Appended(results).Child<OBX>();
    SetValueAt<1>(obx, std::to_string(results.Count()));
    // "0" stands for "no LOINC code": the observation is coded by the analyzer's own identifier.
    const bool ownCode = observation.loincCode == "0";
    SetValueAt<3, 1>(obx, ownCode ? observation.observationId : observation.loincCode);
    SetValueAt<3, 3>(obx, ownCode ? kCodingSystem : "LN");
    Fill(obx, observation);
    // Two equipment identifiers in one field: the model knows no repetition, so the value brings its separators along.
    const bool unnamed = observation.equipmentId1.empty() && observation.equipmentId2.empty();
    SetValueAt<18, 1>(obx, unnamed ? "^Kelvora~^Kelvora"
                                   : observation.equipmentId1 + "^Kelvora~" + observation.equipmentId2 + "^Kelvora");
}

int COUL_R22Wrap::GetObservation(int index, Observation& observation) const {
    const auto* order = Find<Group, Orders>();
    const auto* result = order != nullptr ? order->Child<Results>().GetAt(index) : nullptr;
    return Read(result != nullptr ? &result->Child<OBX>() : nullptr, observation);
}

}  // namespace ZELHL7
