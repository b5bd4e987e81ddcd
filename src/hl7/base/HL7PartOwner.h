#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <span>
#include <string_view>
#include <tuple>

#include "hl7/base/HL7Parent.h"
#include "hl7/base/HL7Pieces.h"

namespace HL7v251::Base {

/// What is to be known of one part. A table of these, in order, is what tells one segment or composite from another.
struct HL7PartType {
    /// Makes the part in `store` and decodes `text` into it.
    HL7Object* (*read)(HL7PartStore& store, HL7Reader text, int& result);
    bool primitive;  ///< whether it is an HL7DataType
};

/// What segments and composites have in common: parts (fields, components) by position. A part is made when it is first
/// written to; one that was never made counts as empty and takes no memory.
class HL7PartOwner : public HL7Parent {
public:
    /// `onlyPrimitives`: whether every part is an HL7DataType.
    explicit HL7PartOwner(bool onlyPrimitives) : onlyPrimitives_(onlyPrimitives) {}
    HL7PartOwner(HL7PartOwner&& other) noexcept;

    /// The number of positions.
    std::size_t Count() const { return Types().size(); }
    /// The part at `index`, counted from 0, or null when it was never made.
    const HL7Object* At(std::size_t index) const { return Item(index); }
    /// The part at `index`, made now if need be; `index` is below Count().
    HL7Object& Make(std::size_t index);

protected:
    virtual std::span<const HL7PartType> Types() const = 0;

    /// The part at `index` of `positions`, made now if need be: a field, or a component when `kComponent`.
    template <class T, bool kComponent>
    T& PartOf(std::size_t index, std::size_t positions) {
        HL7Object*& part = Slot(index, positions);
        if (part == nullptr) {
            part = &NewPart<T, kComponent>(Store());
        }
        return static_cast<T&>(*part);
    }

    /// The table's row for a part.
    template <class T, bool kComponent>
    static HL7Object* ReadPart(HL7PartStore& store, HL7Reader text, int& result) {
        T& part = NewPart<T, kComponent>(store);
        // The type is known here: no need to ask the object for it.
        result = part.T::Read(text);
        return &part;
    }

    bool HasParts() const { return ItemCount() > 0; }

    /// Writes the parts from `first` on with the separators between them, none behind the last that exists.
    void WriteParts(HL7Writer& out, char separator, std::size_t first) const;

    /// Decodes the pieces into the parts from `first` on; `kept` as in HL7Reader. Returns the index of the first part
    /// that is malformed, or -1.
    int ReadParts(const HL7Pieces& pieces, std::size_t first, bool kept);

    /// As ReadParts with `text` as the only piece of all.
    int ReadOnlyPart(HL7Reader text);

private:
    template <class T, bool kComponent>
    static T& NewPart(HL7PartStore& store) {
        T& part = store.Make<T>();
        if constexpr (kComponent && requires { part.UseSubcomponentSeparator(); }) {
            part.UseSubcomponentSeparator();
        }
        return part;
    }

    HL7Object*& Slot(std::size_t index, std::size_t positions) {
        if (index >= ItemCount()) {
            MakeSlots(index + 1, positions);
        }
        return Items()[index];
    }
    /// Makes the list `count` long, with room for `room` parts if it has too little.
    void MakeSlots(std::size_t count, std::size_t room) {
        if (count > room_) {
            MakeRoom(room);
            room_ = static_cast<std::uint8_t>(room);
        }
        Lengthen(count);
    }

    std::uint8_t room_ = 0;
    const bool onlyPrimitives_;
};

/// An empty element of type T, for reading what was never written.
template <class T>
const T& EmptyPart() {
    // Never destroyed, so that a thread that still reads while the process exits finds it whole.
    alignas(T) static std::byte memory[sizeof(T)];
    static const T* const part = ::new (memory) T;
    return *part;
}

/// The type at position N, counted from 1 as HL7 counts.
template <std::size_t N, class... Types>
requires(N >= 1 && N <= sizeof...(Types)) using PartAt = std::tuple_element_t<N - 1, std::tuple<Types...>>;

}  // namespace HL7v251::Base
