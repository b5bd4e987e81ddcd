#pragma once

#include "hl7wrap/CLabAnswerWrap.h"

namespace ZELHL7 {

/// The tabular answer to a query, RTB^K13: a table of one column.
class CRTB_K13Wrap : public CLabAnswerWrap<HL7v251::Message::RTB_K13> {
public:
    void SetHeader(const MessageHeader& header) { FillHeader(Header(), header, Acknowledge::kNever, ""); }

    void SetQueryStatus(const QueryStatus& status) { Fill(Make<Segment::QAK>(), status); }
    /// Returns 1: every message of this kind has this segment.
    int GetQueryStatus(QueryStatus& status) const { return Read(Find<Segment::QAK>(), status); }

    /// The query, repeated.
    void SetQuery(const Query& query) { Fill(Make<Segment::QPD>(), query); }
    /// Returns 1: every message of this kind has a query.
    int GetQuery(Query& query) const { return Read(Find<Segment::QPD>(), query); }

    void SetColumn(const Column& column) { Fill(Make<Table, Segment::RDF>(), column); }
    int GetColumn(Column& column) const { return Read(Find<Table, Segment::RDF>(), column); }

    /// Appends a row.
    void AddRow(std::string_view value) { Appended(Make<Table>().Child<Segment::RDT>()).Field<1>().SetValue(value); }
    /// Reads the row at `index`, counted from 0.
    int GetRow(int index, std::string& value) const {
        const auto* table = Find<Table>();
        const auto* row = table != nullptr ? table->Child<Segment::RDT>().GetAt(index) : nullptr;
        if (row == nullptr) {
            return 0;
        }
        value = row->Field<1>().GetValue();
        return 1;
    }

private:
    using Table = Segment::G_RTB_K13_ROW_DEFINITION;
};

}  // namespace ZELHL7
