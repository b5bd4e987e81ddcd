#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

namespace ZELHL7 {

// A subject's list of places says which of its values stands at which position of a segment: PlaceOf<5, 1, 2> is field
// 5, component 1, subcomponent 2. The same list serves for filling a segment and for reading it.

/// The primitive at a position of a segment or composite.
template <std::size_t kNumber, std::size_t... kDeeper, class Node>
auto& ValueAt(Node& node) {
    const auto part = [](auto& parent) -> auto& {
        if constexpr (requires { parent.template Field<kNumber>(); }) {
            return parent.template Field<kNumber>();
        } else {
            return parent.template Component<kNumber>();
        }
    };
    if constexpr (sizeof...(kDeeper) == 0) {
        return part(node);
    } else {
        return ValueAt<kDeeper...>(part(node));
    }
}

/// Writes a value; an empty one where nothing is to be replaced costs nothing.
template <std::size_t... kPosition, class Segment>
void SetValueAt(Segment& segment, std::string_view value) {
    if (!value.empty() || !ValueAt<kPosition...>(std::as_const(segment)).GetValue().empty()) {
        ValueAt<kPosition...>(segment).SetValue(value);
    }
}

/// A value of a subject that is written and read.
template <class Subject, std::size_t... kPosition>
struct Place {
    std::string Subject::*value;

    template <class Segment>
    void Fill(Segment& segment, const Subject& subject) const {
        SetValueAt<kPosition...>(segment, subject.*value);
    }
    template <class Segment>
    void Read(const Segment& segment, Subject& subject) const {
        subject.*value = ValueAt<kPosition...>(segment).GetValue();
    }
};

template <std::size_t... kPosition, class Subject>
constexpr Place<Subject, kPosition...> PlaceOf(std::string Subject::*value) {
    return {value};
}

/// A value that is written here as well as at its own place.
template <class Subject, std::size_t... kPosition>
struct Copy : Place<Subject, kPosition...> {
    template <class Segment>
    void Read(const Segment&, Subject&) const {}
};

template <std::size_t... kPosition, class Subject>
constexpr Copy<Subject, kPosition...> CopyOf(std::string Subject::*value) {
    return {{value}};
}

/// A value that is read from here, but written by other rules.
template <class Subject, std::size_t... kPosition>
struct Source : Place<Subject, kPosition...> {
    template <class Segment>
    void Fill(Segment&, const Subject&) const {}
};

template <std::size_t... kPosition, class Subject>
constexpr Source<Subject, kPosition...> SourceOf(std::string Subject::*value) {
    return {{value}};
}

/// A text that is the same in every message.
template <std::size_t... kPosition>
struct Always {
    std::string_view text;

    template <class Segment, class Subject>
    void Fill(Segment& segment, const Subject&) const {
        SetValueAt<kPosition...>(segment, text);
    }
    template <class Segment, class Subject>
    void Read(const Segment&, Subject&) const {}
};

template <class Places, class Segment, class Subject>
void Fill(const Places& places, Segment& segment, const Subject& subject) {
    std::apply([&](const auto&... place) { (place.Fill(segment, subject), ...); }, places);
}

template <class Places, class Segment, class Subject>
void Read(const Places& places, const Segment& segment, Subject& subject) {
    std::apply([&](const auto&... place) { (place.Read(segment, subject), ...); }, places);
}

/// Places that are left as they are while a value is empty.
template <class Subject, class... Places>
struct Unless {
    std::string Subject::*empty;
    std::tuple<Places...> places;

    template <class Segment>
    void Fill(Segment& segment, const Subject& subject) const {
        if (!(subject.*empty).empty()) {
            ZELHL7::Fill(places, segment, subject);
        }
    }
    template <class Segment>
    void Read(const Segment& segment, Subject& subject) const {
        ZELHL7::Read(places, segment, subject);
    }
};

template <class Subject, class... Places>
constexpr Unless<Subject, Places...> UnlessEmpty(std::string Subject::*value, Places... places) {
    return {value, {places...}};
}

/// Writes a subject into the segment that its list is of.
template <class Segment, class Subject>
void Fill(Segment& segment, const Subject& subject) {
    Fill(Subject::kPlaces, segment, subject);
}

/// Reads a subject back. Returns 1, or 0 and leaves it alone when there is no segment (null).
template <class Segment, class Subject>
int Read(const Segment* segment, Subject& subject) {
    if (segment == nullptr) {
        return 0;
    }
    Read(Subject::kPlaces, *segment, subject);
    return 1;
}

}  // namespace ZELHL7
