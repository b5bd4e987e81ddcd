#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <span>
#include <string>
#include <string_view>
#include <tuple>

#include "hl7/base/HL7Object.h"
#include "hl7/base/HL7PartStore.h"

namespace HL7v251::Base {

/// How a part of one type is made. A table of these, in order, is what tells one segment or composite from another.
struct HL7PartType {
    /// Makes the part in `store` and decodes `text` into it.
    HL7Object* (*make)(HL7PartStore& store, std::string_view text, int& result);
    std::uint16_t size;  ///< bytes that it takes with one value in it
};

/// The largest number of parts that a segment or composite can have.
inline constexpr std::size_t kMaxParts = 72;

/// A text cut at a separator into at most `limit` pieces.
class HL7Pieces {
public:
    HL7Pieces(std::string_view text, char separator, std::size_t limit);

    std::size_t Count() const { return count_; }
    /// The number of pieces up to the last that is not empty.
    std::size_t Filled() const { return filled_; }
    /// About how many component separators the text holds.
    std::size_t ComponentSeparators() const { return componentSeparators_; }
    /// The length of the text up to the end of the last piece, its separator included.
    std::size_t Consumed() const { return consumed_; }
    std::string_view At(std::size_t index) const {
        const char* const start = index == 0 ? start_ : ends_[index - 1] + 1;
        return {start, static_cast<std::size_t>(ends_[index] - start)};
    }

private:
    const char* start_;
    std::size_t count_ = 0;
    std::size_t filled_ = 0;
    std::size_t consumed_ = 0;
    std::size_t componentSeparators_ = 0;
    std::array<const char*, kMaxParts> ends_;
};

/// The parts of one segment (its fields) or composite (its components), by position from 0. A part is made when it is
/// first written to; one that was never made counts as empty and takes no memory.
class HL7Parts {
public:
    HL7Parts() = default;
    ~HL7Parts() { Destroy(); }
    HL7Parts(const HL7Parts&) = delete;
    HL7Parts& operator=(const HL7Parts&) = delete;

    /// Destroys the parts; the owner of the store does so before the store goes.
    void Destroy();

    /// The part at `index`, or null when it was never made.
    const HL7Object* At(std::size_t index) const { return index < count_ ? parts_[index] : nullptr; }

    /// The part at `index`, made now if it was not there.
    HL7Object& Make(std::size_t index, std::span<const HL7PartType> types, HL7PartStore& store);

    /// Appends the encodings of the parts from `first` on, each but the last that exists followed by `separator`.
    void EncodeTo(std::string& out, char separator, std::size_t first) const;

    /// About how many bytes decoding `pieces` into the parts from `first` on takes.
    static std::size_t Measure(const HL7Pieces& pieces, std::size_t first, std::span<const HL7PartType> types);

    /// Decodes one piece after the other into the parts from `first` on. Returns the index of the first part that is
    /// malformed, or -1.
    int DecodeFrom(const HL7Pieces& pieces, std::size_t first, std::span<const HL7PartType> types, HL7PartStore& store);

private:
    void Grow(std::size_t count, HL7PartStore& store);

    HL7Object** parts_ = nullptr;
    std::uint8_t count_ = 0;
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
