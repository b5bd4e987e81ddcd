#pragma once

#include "hl7/base/HL7Children.h"

namespace HL7v251::Base {

/// A message: a header segment and what follows it.
class HL7Message : public HL7Object {};

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

    void EncodeTo(std::string& out) const override {
        children_.Visit([&out](const HL7Object& child) {
            child.EncodeTo(out);
            return true;
        });
    }

    /// Unlike in a group, a missing part does not fail the message; only a malformed one does.
    int DecodeFrom(std::string_view& text) override {
        bool malformed = false;
        children_.Visit([&](HL7Object& child) {
            malformed = child.DecodeFrom(text) == kMalformed;
            return !malformed;
        });
        return malformed ? kMalformed : kDecoded;
    }

private:
    HL7Children<Types...> children_;
};

}  // namespace HL7v251::Base
