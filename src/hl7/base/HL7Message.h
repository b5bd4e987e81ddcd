#pragma once

#include <memory>
#include <span>

#include "hl7/base/HL7Children.h"
#include "hl7/base/HL7PartStore.h"

namespace HL7v251::Base {

/// A message: a header segment and what follows it.
class HL7Message : public HL7Object {
protected:
    HL7PartStore& Store() { return *store_; }

    static void WriteChildren(std::span<const HL7Object* const> children, HL7Writer& out);
    /// Unlike in a group, a missing part does not fail the message; only a malformed one does.
    static int ReadChildren(std::span<HL7Object* const> children, HL7Reader& in);

private:
    // Outlives the children, which belong to the derived class, and stays where it is when the message is moved.
    std::unique_ptr<HL7PartStore> store_ = std::make_unique<HL7PartStore>();
};

/// The message with the given children.
template <class... Types>
class MessageOf : public HL7Message {
public:
    MessageOf() { children_.LiveIn(Store()); }

    /// The child that is, or holds, the segment or group `Element`.
    template <class Element>
    auto& Child() {
        return children_.template Get<Element>();
    }

    template <class Element>
    const auto& Child() const {
        return children_.template Get<Element>();
    }

    void Write(HL7Writer& out) const override { WriteChildren(children_.List(), out); }
    int Read(HL7Reader& in) override { return ReadChildren(children_.List(), in); }

private:
    HL7Children<Types...> children_;
};

}  // namespace HL7v251::Base
