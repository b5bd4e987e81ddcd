#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <tuple>

#include "hl7/base/HL7Object.h"
#include "hl7/base/HL7PartStore.h"

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

    /// Makes what is below the children live in `store`.
    void LiveIn(HL7PartStore& store) {
        const auto live = [&](auto& child) {
            if constexpr (requires { child.LiveIn(store); }) {
                child.LiveIn(store);
            }
        };
        std::apply([&](Types&... child) { (live(child), ...); }, children_);
    }

    std::array<HL7Object*, sizeof...(Types)> List() {
        return std::apply([](Types&... child) { return std::array<HL7Object*, sizeof...(Types)>{&child...}; },
                          children_);
    }

    std::array<const HL7Object*, sizeof...(Types)> List() const {
        return std::apply(
            [](const Types&... child) { return std::array<const HL7Object*, sizeof...(Types)>{&child...}; }, children_);
    }

private:
    template <class Element>
    static consteval std::size_t IndexOf() {
        constexpr std::array kMatches{std::same_as<Element, typename ElementOf<Types>::Type>...};
        std::size_t index = 0;
        while (index < kMatches.size() && !kMatches[index]) {
            ++index;
        }
        return index;
    }

    std::tuple<Types...> children_;
};

}  // namespace HL7v251::Base
