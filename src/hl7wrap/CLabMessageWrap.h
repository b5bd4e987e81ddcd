#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "hl7/message/Messages.h"
#include "hl7wrap/Occurrences.h"
#include "hl7wrap/Subjects.h"

namespace ZELHL7 {

namespace Segment = HL7v251::Segment;

/// Which acknowledgements the sender of a message expects (MSH-15 and MSH-16).
enum class Acknowledge {
    kByApplication,  ///< of a message that asks or reports: an accept acknowledgement on error, an answer always
    kNever,          ///< of an answer
};

/// Fills a header with the time of now; `profile` is the laboratory profile that the message follows, or empty.
void FillHeader(Segment::MSH& segment, const MessageHeader& header, Acknowledge acknowledge, std::string_view profile);

/// Whether a header that was read may begin a message whose new header is `own`: where both name a message code, a
/// trigger event or a structure (MSH-9), it is the same.
[[nodiscard]] bool IsHeaderOf(const Segment::MSH& own, const Segment::MSH& read);

/// What the wrappers have in common: one message, its header and its text.
///
/// Setters make the first occurrence of what they reach when it is absent and always write into that one; getters
/// return 0 and leave their outputs alone when it is absent, else 1. Values are written as they stand: none may hold a
/// delimiter of the encoding.
template <class Message>
class CLabMessageWrap {
public:
    virtual ~CLabMessageWrap() = default;
    CLabMessageWrap(CLabMessageWrap&&) noexcept = default;
    CLabMessageWrap(const CLabMessageWrap&) = delete;
    CLabMessageWrap& operator=(const CLabMessageWrap&) = delete;

    /// Returns 1: every message has a header.
    int GetHeader(MessageHeader& header) const { return Read(&Header(), header); }

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

    /// MSH-9 as it was read or set. Returns 1: every message has a header.
    int GetMessageType(MessageType& type) const { return Read(&Header(), type); }

    /// MSH-12.1, the version of HL7. Returns 1: every message has a header.
    int GetVersion(std::string& version) const {
        version = ValueAt<12, 1>(Header()).GetValue();
        return 1;
    }

protected:
    CLabMessageWrap() = default;

    /// The segment or group at the end of the path, as MakeFirst and FindFirst go.
    template <class... Path>
    auto& Make() {
        return MakeFirst<Path...>(*message_);
    }
    template <class... Path>
    const auto* Find() const {
        return FindFirst<Path...>(*message_);
    }
    Segment::MSH& Header() { return message_->template Child<Segment::MSH>(); }
    const Segment::MSH& Header() const { return message_->template Child<Segment::MSH>(); }

private:
    // Never empty; optional only because a decoded text takes the place of the whole message.
    std::optional<Message> message_{std::in_place};
};

}  // namespace ZELHL7
