#pragma once

#include <string>
#include <string_view>

#include "hl7wrap/CLabAnswerWrap.h"

namespace ZELHL7 {

/// The general acknowledgement, ACK: the answer to a result message. The common manner of the wrappers is described at
/// COUL_R22Wrap.
class CACKWrap : public CLabAnswerWrap<HL7v251::Message::ACK> {
public:
    void SetHeader(std::string_view sendingApplication, std::string_view sendingFacility,
                   std::string_view receivingApplication, std::string_view receivingFacility,
                   std::string_view messageControlId);

    /// MSH-9: the trigger event is the one of the answered message, for example "R22".
    void SetMessageType(std::string_view triggerEvent);
    /// Returns 1: every message has a header.
    int GetMessageType(std::string& triggerEvent) const;
    using CLabMessageWrap::GetMessageType;
};

}  // namespace ZELHL7
