#pragma once

#include "hl7/base/HL7Children.h"
#include "hl7/base/HL7Name.h"

namespace HL7v251::Base {

/// A group of segments: children that are segments, groups or containers of these.
class HL7SegGroup : public HL7Object {
public:
    virtual std::string_view Name() const = 0;
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

    void EncodeTo(std::string& out) const override {
        children_.Visit([&out](const HL7Object& child) {
            const std::size_t start = out.size();
            child.EncodeTo(out);
            if (out.size() > start && out.back() != kSegmentTerminator) {
                out.push_back(kSegmentTerminator);
            }
            return true;
        });
    }

    /// The group is there only when every child is; what earlier children consumed stays consumed when a later one
    /// fails.
    int DecodeFrom(std::string_view& text) override {
        int result = kDecoded;
        children_.Visit([&](HL7Object& child) {
            result = child.DecodeFrom(text);
            return result == kDecoded;
        });
        return result;
    }

private:
    HL7Children<First, Rest...> children_;
};

}  // namespace HL7v251::Base
