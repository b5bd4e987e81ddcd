#include "hl7wrap/COML_O33Wrap.h"

namespace ZELHL7 {

using namespace HL7v251::Segment;

void COML_O33Wrap::AddOrder(const WorkOrder& order) {
    auto& orders = Make<Group>().Child<G_OML_O33_ORDER>();
    auto& added = Appended(orders);
    Fill(WorkOrder::kControl, added.Child<ORC>(), order);
    if (!order.priority.empty()) {
        Fill(WorkOrder::kTiming, MakeFirst<TQ1>(added), order);
    }
    auto& request = MakeFirst<G_OML_O33_OBSERVATION_REQUEST, OBR>(added);
    SetValueAt<1>(request, std::to_string(orders.Count()));
    Fill(WorkOrder::kRequest, request, order);
}

int COML_O33Wrap::GetOrder(int index, WorkOrder& order) const {
    const auto* specimen = Find<Group>();
    const auto* found = specimen != nullptr ? specimen->Child<G_OML_O33_ORDER>().GetAt(index) : nullptr;
    if (found == nullptr) {
        return 0;
    }
    order = WorkOrder{};
    Read(WorkOrder::kControl, found->Child<ORC>(), order);
    if (const auto* timing = FindFirst<TQ1>(*found); timing != nullptr) {
        Read(WorkOrder::kTiming, *timing, order);
    }
    if (const auto* request = FindFirst<G_OML_O33_OBSERVATION_REQUEST, OBR>(*found); request != nullptr) {
        Read(WorkOrder::kRequest, *request, order);
    }
    return 1;
}

}  // namespace ZELHL7
