#pragma once

#include <string>
#include <string_view>

#include "hl7wrap/CLabAnswerWrap.h"

namespace ZELHL7 {

/// The tabular answer to a query, RTB^K13: a table of one column. The common manner of the wrappers is described at
/// COUL_R22Wrap.
class CRTB_K13Wrap : public CLabAnswerWrap<HL7v251::Message::RTB_K13> {
public:
    void SetHeader(std::string_view sendingApplication, std::string_view sendingFacility,
                   std::string_view receivingApplication, std::string_view receivingFacility,
                   std::string_view messageControlId);

    /// QAK-1 (the tag of the query), QAK-2 ("OK" found, "NF" nothing found, "AE" error), QAK-4 (rows found), QAK-5
    /// (rows in this answer) and QAK-6 (rows that remain).
    void SetQueryStatus(std::string_view queryTag, std::string_view status, std::string_view rowsFound,
                        std::string_view rowsHere, std::string_view rowsRemaining);
    /// Returns 1: every message of this kind has this segment.
    int GetQueryStatus(std::string& queryTag, std::string& status, std::string& rowsFound, std::string& rowsHere,
                       std::string& rowsRemaining) const;

    /// QPD-1.1, QPD-1.2, QPD-2 (the tag that pairs question and answer) and QPD-3, repeated from the
    /// query.
    void SetQuery(std::string_view nameCode, std::string_view nameText, std::string_view queryTag,
                  std::string_view parameter);
    /// Returns 1: every message of this kind has a query.
    int GetQuery(std::string& nameCode, std::string& nameText, std::string& queryTag, std::string& parameter) const;

    /// RDF-2: the name, data type and maximum width of the one column.
    void SetColumn(std::string_view name, std::string_view dataType, std::string_view maximumWidth);
    int GetColumn(std::string& name, std::string& dataType, std::string& maximumWidth) const;

    /// Appends a row.
    void AddRow(std::string_view value);
    /// Reads the row at `index`, counted from 0.
    int GetRow(int index, std::string& value) const;
};

}  // namespace ZELHL7
