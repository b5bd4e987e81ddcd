#pragma once

#include "hl7wrap/CLabMessageWrap.h"

namespace ZELHL7 {

/// The unsolicited laboratory result, OUL^R22 of profile LAB-29.
class COUL_R22Wrap : public CLabMessageWrap<HL7v251::Message::OUL_R22> {
public:
    void SetHeader(const MessageHeader& header) { FillHeader(Header(), header, Acknowledge::kByApplication, "LAB-29"); }

    void SetPatient(const Patient& patient) { Fill(Make<Segment::PID>(), patient); }
    int GetPatient(Patient& patient) const { return Read(Find<Segment::PID>(), patient); }

    void SetSpecimen(const Specimen& specimen) { Fill(Make<Group, Segment::SPM>(), specimen); }
    /// The specimen is whole blood, "BLD".
    void SetSpecimen(const std::string& specimenRole) { SetSpecimen(Specimen{"BLD", specimenRole}); }
    int GetSpecimen(Specimen& specimen) const { return Read(Find<Group, Segment::SPM>(), specimen); }

    void SetContainer(const Container& container) { Fill(Make<Group, Containers, Segment::SAC>(), container); }
    /// Leaves the reagent version as it is.
    void SetContainer(const std::string& hemolysisIndex, const std::string& lipemiaIndex,
                      const std::string& icterusIndex) {
        Fill(Container::kIndices, Make<Group, Containers, Segment::SAC>(),
             Container{hemolysisIndex, lipemiaIndex, icterusIndex, ""});
    }
    int GetContainer(Container& container) const { return Read(Find<Group, Containers, Segment::SAC>(), container); }

    void SetInventory(const Inventory& inventory) { Fill(Make<Group, Containers, Segment::INV>(), inventory); }
    int GetInventory(Inventory& inventory) const { return Read(Find<Group, Containers, Segment::INV>(), inventory); }

    void SetOrder(const Order& order) { Fill(Make<Group, Orders, Segment::OBR>(), order); }
    int GetOrder(Order& order) const { return Read(Find<Group, Orders, Segment::OBR>(), order); }

    void SetOrderControl(const OrderControl& control) { Fill(Make<Group, Orders, Segment::ORC>(), control); }
    int GetOrderControl(OrderControl& control) const { return Read(Find<Group, Orders, Segment::ORC>(), control); }

    /// Appends a result group; OBX-1 counts them from 1.
    void AddObservation(const Observation& observation);
    /// Reads the result group at `index`, counted from 0. `loincCode` receives OBX-3.1 and `observationId` OBX-3.2 as
    /// they stand; the equipment identifiers are left alone.
    int GetObservation(int index, Observation& observation) const;

    /// The lot of the consumed substance, on the first result group.
    void SetSubstanceLot(const SubstanceLot& lot) { Fill(Make<Group, Orders, Results, Segment::SID>(), lot); }
    int GetSubstanceLot(SubstanceLot& lot) const { return Read(Find<Group, Orders, Results, Segment::SID>(), lot); }

private:
    using Group = Segment::G_OUL_R22_SPECIMEN;
    using Containers = Segment::G_OUL_R22_CONTAINER;
    using Orders = Segment::G_OUL_R22_ORDER;
    using Results = Segment::G_OUL_R22_RESULT;
};

}  // namespace ZELHL7
