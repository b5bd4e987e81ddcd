#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <span>
#include <string_view>
#include <tuple>

#include "hl7/base/HL7Object.h"
#include "hl7/base/HL7PartStore.h"
#include "hl7/base/HL7Pieces.h"

namespace HL7v251::Base {

/// What is to be known of one part. A table of these, in order, is what tells one segment or composite from another.
struct HL7PartType {
    /// Makes the part in `store` and decodes `text` into it.
    HL7Object* (*make)(HL7PartStore& store, std::string_view text, int& result);
    bool primitive;  ///< whether it is an HL7DataType
};

/// What segments and composites have in common: parts (fields, components) by position. A part is made when it is first
/// written to; one that was never made counts as empty and takes no memory.
class HL7PartOwner : public HL7Object {
public:
    /// `onlyPrimitives`: whether every part is an HL7DataType.
    explicit HL7PartOwner(bool onlyPrimitives) : onlyPrimitives_(onlyPrimitives) {}
    HL7PartOwner(HL7PartOwner&& other) noexcept;
    ~HL7PartOwner() override;

    /// The number of positions.
    std::size_t Count() const { return Types().size(); }
    /// The part at `index`, counted from 0, or null when it was never made.
    const HL7Object* At(std::size_t index) const { return index < made_ ? parts_[index] : nullptr; }
    /// The part at `index`, made now if need be; `index` is below Count().
    HL7Object& Make(std::size_t index);

    /// Makes the parts live in `store`, which outlives this object. Without it they live in a store of their own.
    void LiveIn(HL7PartStore& store) { store_ = &store; }

protected:
    virtual std::span<const HL7PartType> Types() const = 0;

    bool HasParts() const { return made_ > 0; }
    bool HasStore() const { return store_ != nullptr; }

    /// Writes the parts from `first` on with the separators between them, none behind the last that exists.
    void WriteParts(HL7Writer& out, char separator, std::size_t first) const;

    /// Decodes the pieces into the parts from `first` on. Returns the index of the first part that is malformed, or -1.
    int ReadParts(const HL7Pieces& pieces, std::size_t first);

    /// As ReadParts with `text` as the only piece of all.
    int ReadOnlyPart(std::string_view text);

private:
    HL7PartStore& Store();
    void Grow(std::size_t count);

    HL7PartStore* store_ = nullptr;
    HL7Object** parts_ = nullptr;
    // Small, so that with the separator of a composite they share one word: messages hold thousands of these objects.
    std::uint8_t made_ = 0;
    bool ownsStore_ = false;
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
