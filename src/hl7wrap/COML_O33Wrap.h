#pragma once

#include "hl7wrap/CLabMessageWrap.h"

namespace ZELHL7 {

/// The work order for the analyzer, OML^O33 of profile LAB-28: one specimen and the tests ordered on it.
class COML_O33Wrap : public CLabMessageWrap<HL7v251::Message::OML_O33> {
public:
    void SetHeader(const MessageHeader& header) { FillHeader(Header(), header, Acknowledge::kByApplication, "LAB-28"); }

    void SetPatient(const Patient& patient) { Fill(Make<PatientGroup, Segment::PID>(), patient); }
    int GetPatient(Patient& patient) const { return Read(Find<PatientGroup, Segment::PID>(), patient); }

    void SetVisit(const Visit& visit) { Fill(Make<PatientGroup, Segment::PV1>(), visit); }
    int GetVisit(Visit& visit) const { return Read(Find<PatientGroup, Segment::PV1>(), visit); }

    void SetSpecimen(const OrderedSpecimen& specimen) { Fill(Make<Group, Segment::SPM>(), specimen); }
    int GetSpecimen(OrderedSpecimen& specimen) const { return Read(Find<Group, Segment::SPM>(), specimen); }

    void SetContainer(const ContainerPlace& place) { Fill(Make<Group, Segment::SAC>(), place); }
    int GetContainer(ContainerPlace& place) const { return Read(Find<Group, Segment::SAC>(), place); }

    /// Appends an order to the specimen.
    void AddOrder(const WorkOrder& order);
    /// Reads the order at `index`, counted from 0. A part of the order that the message lacks reads as empty.
    int GetOrder(int index, WorkOrder& order) const;

private:
    using PatientGroup = Segment::G_OML_O33_PATIENT;
    using Group = Segment::G_OML_O33_SPECIMEN;
};

}  // namespace ZELHL7
