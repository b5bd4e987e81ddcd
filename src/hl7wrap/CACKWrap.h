#pragma once

#include "hl7wrap/CLabAnswerWrap.h"

namespace ZELHL7 {

/// The general acknowledgement, ACK: the answer to a result message.
class CACKWrap : public CLabAnswerWrap<HL7v251::Message::ACK> {
public:
    void SetHeader(const MessageHeader& header) { FillHeader(Header(), header, Acknowledge::kNever, ""); }

    /// MSH-9: the trigger event is the one of the answered message, for example "R22".
    void SetMessageType(const std::string& triggerEvent) { Fill(Header(), MessageType{"ACK", triggerEvent, "ACK"}); }
};

}  // namespace ZELHL7
