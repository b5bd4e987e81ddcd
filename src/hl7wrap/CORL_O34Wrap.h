#pragma once

#include "hl7wrap/CLabAnswerWrap.h"

namespace ZELHL7 {

/// The analyzer's answer to a work order, ORL^O34 of profile LAB-28. A patient can only be read back together with a
/// specimen, because the message carries both as one group.
class CORL_O34Wrap : public CLabAnswerWrap<HL7v251::Message::ORL_O34> {
public:
    void SetHeader(const MessageHeader& header) { FillHeader(Header(), header, Acknowledge::kNever, "LAB-28"); }

    void SetPatient(const Patient& patient) { Fill(Make<Response, Patients, Segment::PID>(), patient); }
    int GetPatient(Patient& patient) const { return Read(Find<Response, Patients, Segment::PID>(), patient); }

    void SetSpecimen(const OrderedSpecimen& specimen) {
        Fill(Make<Response, Patients, Specimens, Segment::SPM>(), specimen);
    }
    int GetSpecimen(OrderedSpecimen& specimen) const {
        return Read(Find<Response, Patients, Specimens, Segment::SPM>(), specimen);
    }

    void SetContainer(const ContainerPlace& place) { Fill(Make<Response, Patients, Specimens, Segment::SAC>(), place); }
    int GetContainer(ContainerPlace& place) const {
        return Read(Find<Response, Patients, Specimens, Segment::SAC>(), place);
    }

    /// Appends the answer to one order of the specimen.
    void AddOrder(const OrderAnswer& order) {
        Fill(Appended(Make<Response, Patients, Specimens>().Child<Orders>()).Child<Segment::ORC>(), order);
    }
    /// Reads the answer at `index`, counted from 0.
    int GetOrder(int index, OrderAnswer& order) const {
        const auto* specimen = Find<Response, Patients, Specimens>();
        const auto* found = specimen != nullptr ? specimen->Child<Orders>().GetAt(index) : nullptr;
        return Read(found != nullptr ? &found->Child<Segment::ORC>() : nullptr, order);
    }

private:
    using Response = Segment::G_ORL_O34_RESPONSE;
    using Patients = Segment::G_ORL_O34_PATIENT;
    using Specimens = Segment::G_ORL_O34_SPECIMEN;
    using Orders = Segment::G_ORL_O34_ORDER;
};

}  // namespace ZELHL7
