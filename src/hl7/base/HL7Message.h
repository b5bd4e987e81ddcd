#pragma once

#include <span>

#include "hl7/base/HL7Children.h"

namespace HL7v251::Base {

/// A message: a header segment and what follows it.
class HL7Message : public HL7Object {
protected:
    static void EncodeChildren(std::span<const HL7Object* const> children, std::string& out);
    /// Unlike in a group, a missing part does not fail the message; only a malformed one does.
    static int DecodeChildren(std::span<HL7Object* const> children, std::string_view& text);
};

/// The message with the given children.
template <class... Types>
class MessageOf : public HL7Message {
public:
    /// The child that is, or holds, the segment or group `Element`.
    template <class Element>
    auto& Child() {
        return children_.template Get<Element>();
    }

    template <class Element>
    const auto& Child() const {
        return children_.template Get<Element>();
    }

    void EncodeTo(std::string& out) const override { EncodeChildren(children_.List(), out); }
    int DecodeFrom(std::string_view& text) override { return DecodeChildren(children_.List(), text); }

private:
    HL7Children<Types...> children_;
};

}  // namespace HL7v251::Base
