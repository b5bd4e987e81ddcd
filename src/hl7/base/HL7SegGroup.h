#pragma once

#include <span>

#include "hl7/base/HL7Children.h"
#include "hl7/base/HL7Name.h"

namespace HL7v251::Base {

/// A group of segments: children that are segments, groups or containers of these.
class HL7SegGroup : public HL7Object {
public:
    virtual std::string_view Name() const = 0;

protected:
    /// A child whose text does not end with the segment terminator gets one.
    static void WriteChildren(std::span<const HL7Object* const> children, HL7Writer& out);
    /// The group is there only when every child is; when one is missing, nothing is consumed.
    static int ReadChildren(std::span<HL7Object* const> children, HL7Reader& in);
};

/// The group with the given name and children.
template <HL7Name kText, class First, class... Rest>
class GroupOf : public HL7SegGroup {
public:
    static constexpr std::string_view kName = kText.View();

    std::string_view Name() const override { return kName; }

    /// Whether `text` can begin with this group; false only when decoding would return "absent" without consuming
    /// anything.
    static bool Begins(std::string_view text) {
        if constexpr (requires { First::Begins(text); }) {
            return First::Begins(text);
        } else {
            return true;
        }
    }

    /// The child that is, or holds, the segment or group `Element`.
    template <class Element>
    auto& Child() {
        return children_.template Get<Element>();
    }

    template <class Element>
    const auto& Child() const {
        return children_.template Get<Element>();
    }

    /// Makes what is below the children live in `store`, which outlives this object. For a new group.
    void LiveIn(HL7PartStore& store) { children_.LiveIn(store); }

    void Write(HL7Writer& out) const override { WriteChildren(children_.List(), out); }
    int Read(HL7Reader& in) override { return ReadChildren(children_.List(), in); }

private:
    HL7Children<First, Rest...> children_;
};

}  // namespace HL7v251::Base
