#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "hl7/message/Messages.h"
#include "hl7wrap/SegmentValues.h"

namespace ZELHL7 {

/// What the wrappers have in common: one message, its header and its text.
template <class Message>
class CLabMessageWrap {
public:
    virtual ~CLabMessageWrap() = default;
    CLabMessageWrap(CLabMessageWrap&&) noexcept = default;
    CLabMessageWrap(const CLabMessageWrap&) = delete;
    CLabMessageWrap& operator=(const CLabMessageWrap&) = delete;

    /// Returns 1: every message has a header.
    int GetHeader(std::string& sendingApplication, std::string& sendingFacility, std::string& receivingApplication,
                  std::string& receivingFacility, std::string& messageControlId) const {
        return ReadHeader(Header(), sendingApplication, sendingFacility, receivingApplication, receivingFacility,
                          messageControlId);
    }

    /// Replaces `out` by the encoded message.
    void GetMessageText(std::string& out) const {
        out.clear();
        message_->EncodeTo(out);
    }

    /// Replaces the message by what `text` begins with, for the getters to read, and removes that from `text`: what is
    /// left was not understood, and whoever must lose nothing looks whether it is empty. It begins with the first
    /// segment that has no place in this message, which may be one of a line feed and a name.
    ///
    /// Returns 1 on success; 0 when `text` does not begin with the header of such a message (of another structure, or
    /// of none), and nothing is read then; -1 when a part is malformed, and what was read up to there can be got.
    [[nodiscard]] int Decode(std::string_view& text) {
        message_.emplace();
        Segment::MSH header;
        if (std::string_view front = text; header.DecodeFrom(front) != 1 || !IsHeaderOf(Header(), header)) {
            return 0;
        }
        return message_->DecodeFrom(text);
    }

    /// MSH-9 as it was read or set: the message code, the trigger event and the structure, for example "OUL", "R22" and
    /// "OUL_R22". Returns 1: every message has a header.
    int GetMessageType(std::string& code, std::string& triggerEvent, std::string& structure) const {
        return ReadMessageType(Header(), code, triggerEvent, structure);
    }

    /// MSH-12.1, the version of HL7. Returns 1: every message has a header.
    int GetVersion(std::string& version) const {
        version = Header().template Field<12>().template Component<1>().GetValue();
        return 1;
    }

protected:
    CLabMessageWrap() = default;

    Message& Content() { return *message_; }
    const Message& Content() const { return *message_; }
    Segment::MSH& Header() { return message_->template Child<Segment::MSH>(); }
    const Segment::MSH& Header() const { return message_->template Child<Segment::MSH>(); }

private:
    // Never empty; optional only because a decoded text takes the place of the whole message.
    std::optional<Message> message_{std::in_place};
};

}  // namespace ZELHL7
