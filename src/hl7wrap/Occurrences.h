#pragma once

#include "hl7/base/HL7Occurrences.h"

namespace ZELHL7 {

/// Walks down from `node` through the first occurrence of each of the given segments and groups, appending what is
/// absent, and returns the last.
template <class Element, class... Deeper, class Node>
auto& MakeFirst(Node& node) {
    auto& child = node.template Child<Element>();
    Element* element = nullptr;
    if constexpr (requires { child.Append(); }) {
        if (child.Count() == 0) {
            child.Append();
        }
        element = child.GetAt(0);
    } else {
        element = &child;
    }
    if constexpr (sizeof...(Deeper) == 0) {
        return *element;
    } else {
        return MakeFirst<Deeper...>(*element);
    }
}

/// The same way down without making anything; null when an occurrence is absent.
template <class Element, class... Deeper, class Node>
const auto* FindFirst(const Node& node) {
    const auto& child = node.template Child<Element>();
    const Element* element = nullptr;
    if constexpr (requires { child.GetAt(0); }) {
        element = child.GetAt(0);
    } else {
        element = &child;
    }
    if constexpr (sizeof...(Deeper) == 0) {
        return element;
    } else {
        using Found = decltype(FindFirst<Deeper...>(*element));
        return element != nullptr ? FindFirst<Deeper...>(*element) : Found{nullptr};
    }
}

/// A new occurrence at the end.
template <class Occurrences>
auto& Appended(Occurrences& occurrences) {
    occurrences.Append();
    return *occurrences.GetAt(occurrences.Count() - 1);
}

}  // namespace ZELHL7
