#pragma once

#include "hl7wrap/CLabMessageWrap.h"
#include "hl7wrap/Occurrences.h"

namespace ZELHL7 {

/// What the wrappers of answers have in common: the acknowledgement of the message that is answered, and what was wrong
/// with it.
template <class Message>
class CLabAnswerWrap : public CLabMessageWrap<Message> {
public:
    /// MSA-1 ("AA" accepted, "AE" error, "AR" rejected), MSA-2 (the control ID of the answered message), MSA-3.
    void SetAcknowledgment(std::string_view code, std::string_view messageControlId, std::string_view text) {
        FillAcknowledgment(MakeFirst<Segment::MSA>(this->Content()), code, messageControlId, text);
    }

    /// Returns 1: every answer has this segment.
    int GetAcknowledgment(std::string& code, std::string& messageControlId, std::string& text) const {
        return ReadAcknowledgment(*FindFirst<Segment::MSA>(this->Content()), code, messageControlId, text);
    }

    /// On the first ERR: where the error is (ERR-2: segment name, its number, position of the field), what it is
    /// (ERR-3) and how severe ("E", "W" or "I" in ERR-4).
    void SetError(std::string_view segmentName, std::string_view segmentNumber, std::string_view fieldPosition,
                  std::string_view errorCode, std::string_view errorText, std::string_view severity) {
        FillError(MakeFirst<Segment::ERR>(this->Content()), segmentName, segmentNumber, fieldPosition, errorCode,
                  errorText, severity);
    }

    int GetError(std::string& segmentName, std::string& segmentNumber, std::string& fieldPosition,
                 std::string& errorCode, std::string& errorText, std::string& severity) const {
        return ReadError(FindFirst<Segment::ERR>(this->Content()), segmentName, segmentNumber, fieldPosition, errorCode,
                         errorText, severity);
    }
};

}  // namespace ZELHL7
