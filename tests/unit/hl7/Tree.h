#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "hl7/message/Messages.h"

/// Random trees of any element of the catalogue, and the values of a tree with their places.
namespace tree {

namespace base = HL7v251::Base;
using namespace HL7v251::Message;

/// Fills elements so that their text can be read back in one way only: values without delimiters, and whatever else the
/// encoding cannot tell apart left out.
class Filler {
public:
    explicit Filler(std::uint32_t seed) : random_(seed) {}

    void Fill(base::HL7Segment& segment);

    template <class T>
    void Fill(base::HL7SegmentOp<T>& container) {
        Append(container, Chance(2) ? 1 : 0);
    }

    template <class T>
    void Fill(base::HL7SegmentRe<T>& container) {
        Append(container, Chance(2) ? 2 : 1);
    }

    template <class T>
    void Fill(base::HL7SegmentOpRe<T>& container) {
        Append(container, Chance(3) ? 2 : Chance(2) ? 1 : 0);
    }

    template <base::HL7Name kName, class... Types>
    void Fill(base::GroupOf<kName, Types...>& group) {
        (Fill(group.template Child<typename base::ElementOf<Types>::Type>()), ...);
    }

    template <class... Types>
    void Fill(base::MessageOf<Types...>& message) {
        (Fill(message.template Child<typename base::ElementOf<Types>::Type>()), ...);
    }

private:
    bool Chance(int oneIn) { return std::uniform_int_distribution(1, oneIn)(random_) == 1; }
    std::string Value();
    void FillPart(base::HL7Object& part, int depth);

    template <class Container>
    void Append(Container& container, int count) {
        for (int index = 0; index < count; ++index) {
            container.Append();
            Fill(*container.GetAt(index));
        }
    }

    std::mt19937 random_;
};

/// Every value that is not empty, behind its place: "OBX-3.1=value", with one entry for each segment before its values.
using Values = std::vector<std::string>;

void Collect(const base::HL7Segment& segment, Values& values);

template <base::HL7Name kName, class... Types>
void Collect(const base::GroupOf<kName, Types...>& group, Values& values);

template <class T>
void Collect(const base::HL7Occurrences<T>& container, Values& values) {
    for (int index = 0; index < container.Count(); ++index) {
        Collect(*container.GetAt(index), values);
    }
}

template <base::HL7Name kName, class... Types>
void Collect(const base::GroupOf<kName, Types...>& group, Values& values) {
    (Collect(group.template Child<typename base::ElementOf<Types>::Type>(), values), ...);
}

template <class... Types>
void Collect(const base::MessageOf<Types...>& message, Values& values) {
    (Collect(message.template Child<typename base::ElementOf<Types>::Type>(), values), ...);
}

}  // namespace tree
