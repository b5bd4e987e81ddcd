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

    /// Replaces the message by what `text` holds, for the getters to read. Returns 1 on success, 0 when `text` does not
    /// begin with a message header, -1 when a part is malformed; what was read up to there can be got.
    int Decode(std::string_view text) {
        message_.emplace();
        if (!Segment::MSH::Begins(text)) {
            return 0;
        }
        return message_->DecodeFrom(text);
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
