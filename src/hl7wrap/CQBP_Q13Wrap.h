#pragma once

#include <string>
#include <string_view>

#include "hl7wrap/CLabMessageWrap.h"

namespace ZELHL7 {

/// The query for a tabular answer, QBP^Q13. The common manner of the wrappers is described at COUL_R22Wrap.
class CQBP_Q13Wrap : public CLabMessageWrap<HL7v251::Message::QBP_Q13> {
public:
    void SetHeader(std::string_view sendingApplication, std::string_view sendingFacility,
                   std::string_view receivingApplication, std::string_view receivingFacility,
                   std::string_view messageControlId);

    /// QPD-1.1, QPD-1.2, QPD-2 (the tag that pairs question and answer) and QPD-3.
    void SetQuery(std::string_view nameCode, std::string_view nameText, std::string_view queryTag,
                  std::string_view parameter);
    /// Returns 1: every message of this kind has a query.
    int GetQuery(std::string& nameCode, std::string& nameText, std::string& queryTag, std::string& parameter) const;

    /// RDF-2: the name, data type and maximum width of the one column that the answer shall have.
    void SetColumn(std::string_view name, std::string_view dataType, std::string_view maximumWidth);
    int GetColumn(std::string& name, std::string& dataType, std::string& maximumWidth) const;

    /// How to answer: RCP-1 ("I" at once, "D" deferred), RCP-2.1 (at most so many rows) and RCP-3.1 ("R" in real time).
    void SetResponseControl(std::string_view priority, std::string_view maximumRows, std::string_view modality);
    /// Returns 1: every message of this kind has this segment.
    int GetResponseControl(std::string& priority, std::string& maximumRows, std::string& modality) const;
};

}  // namespace ZELHL7
