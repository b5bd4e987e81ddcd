#pragma once

#include "hl7wrap/CLabMessageWrap.h"

namespace ZELHL7 {

/// What the wrappers of answers have in common: the acknowledgement of the message that is answered, and what was wrong
/// with it.
template <class Message>
class CLabAnswerWrap : public CLabMessageWrap<Message> {
public:
    void SetAcknowledgment(const Acknowledgment& acknowledgment) {
        Fill(this->template Make<Segment::MSA>(), acknowledgment);
    }
    /// Returns 1: every answer has this segment.
    int GetAcknowledgment(Acknowledgment& acknowledgment) const {
        return Read(this->template Find<Segment::MSA>(), acknowledgment);
    }

    void SetError(const MessageError& error) { Fill(this->template Make<Segment::ERR>(), error); }
    int GetError(MessageError& error) const { return Read(this->template Find<Segment::ERR>(), error); }
};

}  // namespace ZELHL7
