#pragma once

#include "hl7wrap/CLabMessageWrap.h"

namespace ZELHL7 {

/// The query for a tabular answer, QBP^Q13.
class CQBP_Q13Wrap : public CLabMessageWrap<HL7v251::Message::QBP_Q13> {
public:
    void SetHeader(const MessageHeader& header) {
        FillHeader(Header(), header, Acknowledge::kByApplication, "");
        SetValueAt<9, 3>(Header(), "QBP_Q13");
    }

    void SetQuery(const Query& query) { Fill(Make<Segment::QPD>(), query); }
    /// Returns 1: every message of this kind has a query.
    int GetQuery(Query& query) const { return Read(Find<Segment::QPD>(), query); }

    /// The one column that the answer shall have.
    void SetColumn(const Column& column) { Fill(Make<Segment::RDF>(), column); }
    int GetColumn(Column& column) const { return Read(Find<Segment::RDF>(), column); }

    void SetResponseControl(const ResponseControl& control) { Fill(Make<Segment::RCP>(), control); }
    /// Returns 1: every message of this kind has this segment.
    int GetResponseControl(ResponseControl& control) const { return Read(Find<Segment::RCP>(), control); }
};

}  // namespace ZELHL7
