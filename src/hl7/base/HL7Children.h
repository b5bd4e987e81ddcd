#pragma once

#include <concepts>
#include <string_view>
#include <tuple>

#include "hl7/base/HL7Object.h"

namespace HL7v251::Base {

/// What a child stands for: the segment or group that a container holds, or the child itself.
template <class Child>
struct ElementOf {
    using Type = Child;
};

template <class Child>
requires requires {
    typename Child::Element;
}
struct ElementOf<Child> {
    using Type = typename Child::Element;
};

/// The children of a group or message in their order. No two children stand for the same segment or group, so each is
/// reached by that type.
template <class... Types>
class HL7Children {
public:
    template <class Element>
    auto& Get() {
        return std::get<IndexOf<Element>()>(children_);
    }

    template <class Element>
    const auto& Get() const {
        return std::get<IndexOf<Element>()>(children_);
    }

    /// Calls `visit(child)` for each child in order until it returns false.
    template <class Visitor>
    void Visit(Visitor visit) {
        std::apply([&](Types&... child) { (visit(child) && ...); }, children_);
    }

    template <class Visitor>
    void Visit(Visitor visit) const {
        std::apply([&](const Types&... child) { (visit(child) && ...); }, children_);
    }

private:
    template <class Element>
    static consteval std::size_t IndexOf() {
        constexpr bool kMatches[] = {std::same_as<Element, typename ElementOf<Types>::Type>...};
        std::size_t found = sizeof...(Types);
        for (std::size_t index = sizeof...(Types); index-- > 0;) {
            if (kMatches[index]) {
                found = index;
            }
        }
        return found;
    }

    std::tuple<Types...> children_;
};

}  // namespace HL7v251::Base
