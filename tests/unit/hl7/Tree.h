#pragma once

#include <random>
#include <string>
#include <utility>
#include <vector>

#include "hl7/message/Messages.h"

/// Random trees of any element of the catalogue, and the values of a tree in order.
namespace tree {

namespace base = HL7v251::Base;
using namespace HL7v251::Message;

/// Fills elements so that their text can be read back in one way only: values without delimiters, and whatever else the
/// encoding cannot tell apart left out.
class Filler {
public:
    explicit Filler(std::uint32_t seed) : random_(seed) {}

    void Fill(base::HL7DataType& value) { value.SetValue(Value()); }

    template <class... Types>
    void Fill(base::CompositeOf<Types...>& composite) {
        ++depth_;
        [&]<std::size_t... I>(std::index_sequence<I...>) {
            // Components of a third level share the separator of the second, so only the first can be told from the
            // next component of the second.
            ((Chance(3) && (depth_ < 3 || I == 0) ? Fill(composite.template Component<I + 1>()) : void()), ...);
        }
        (std::index_sequence_for<Types...>{});
        --depth_;
    }

    template <base::HL7Name kName, class... Types>
    void Fill(base::SegmentOf<kName, Types...>& segment) {
        [&]<std::size_t... I>(std::index_sequence<I...>) {
            ((Chance(4) ? Fill(segment.template Field<I + 1>()) : void()), ...);
        }
        (std::index_sequence_for<Types...>{});
        if constexpr (kName.View() == "MSH") {
            segment.template Field<1>().SetValue("|");
        }
    }

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
        // The order behind a prior result would be read as one more prior order.
        if (!std::same_as<T, G_OML_O33_PRIOR_RESULT> || lastOrder_) {
            Append(container, Chance(3) ? 2 : Chance(2) ? 1 : 0);
        }
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

    std::string Value() {
        std::string value(std::uniform_int_distribution<std::size_t>(1, 24)(random_), '\0');
        for (char& c : value) {
            do {
                c = static_cast<char>(std::uniform_int_distribution(0, 255)(random_));
            } while (c == '\r' || c == '|' || c == '^' || c == '&');
        }
        return value;
    }

    template <class Container>
    void Append(Container& container, int count) {
        for (int index = 0; index < count; ++index) {
            container.Append();
            if constexpr (std::same_as<typename Container::Element, G_OML_O33_ORDER>) {
                lastOrder_ = index + 1 == count;
            }
            Fill(*container.GetAt(index));
        }
    }

    std::mt19937 random_;
    int depth_ = 0;
    bool lastOrder_ = true;
};

using Values = std::vector<std::string>;

inline void Collect(const base::HL7DataType& value, Values& values) {
    values.push_back(value.GetValue());
}

template <class... Types>
void Collect(const base::CompositeOf<Types...>& composite, Values& values) {
    [&]<std::size_t... I>(std::index_sequence<I...>) {
        (Collect(composite.template Component<I + 1>(), values), ...);
    }
    (std::index_sequence_for<Types...>{});
}

template <base::HL7Name kName, class... Types>
void Collect(const base::SegmentOf<kName, Types...>& segment, Values& values) {
    values.emplace_back(segment.Name());
    [&]<std::size_t... I>(std::index_sequence<I...>) {
        (Collect(segment.template Field<I + 1>(), values), ...);
    }
    (std::index_sequence_for<Types...>{});
}

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
