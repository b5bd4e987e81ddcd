#include "hl7/base/HL7Parts.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "hl7/base/HL7DataType.h"

namespace HL7v251::Base {

namespace {

// A field with more components than this takes one more allocation.
constexpr std::size_t kMostMeasured = 100;

constexpr std::size_t kWordSize = sizeof(std::uint64_t);
constexpr std::uint64_t kLowBits = 0x7f7f7f7f7f7f7f7f;

// Eight characters as one number, the first one lowest.
std::uint64_t LoadWord(const char* text) {
    std::uint64_t word = 0;
    std::memcpy(&word, text, kWordSize);
    return std::endian::native == std::endian::little ? word : __builtin_bswap64(word);
}

// The top bit of each character of `word` that equals `c`, no other bits.
std::uint64_t Matches(std::uint64_t word, char c) {
    const std::uint64_t differences = word ^ (0x0101010101010101 * static_cast<unsigned char>(c));
    return ~(((differences & kLowBits) + kLowBits) | differences | kLowBits);
}

std::size_t CountOf(std::uint64_t matches) {
    return ((matches >> 7) * 0x0101010101010101) >> 56;
}

}  // namespace

// Eight characters at a time: cutting is most of the work of decoding.
HL7Pieces::HL7Pieces(std::string_view text, char separator, std::size_t limit) : start_(text.data()) {
    const char* const textEnd = text.data() + text.size();
    const char* at = text.data();
    const char* pieceStart = at;
    std::size_t count = 0;
    std::size_t filled = 0;
    std::size_t components = 0;
    const auto add = [&](const char* end) {
        ends_[count++] = end;
        filled = end != pieceStart ? count : filled;
        pieceStart = end + 1;
    };
    for (; textEnd - at >= static_cast<std::ptrdiff_t>(kWordSize) && count < limit; at += kWordSize) {
        const std::uint64_t word = LoadWord(at);
        components += CountOf(Matches(word, HL7Object::kComponentSeparator));
        for (std::uint64_t matches = Matches(word, separator); matches != 0 && count < limit; matches &= matches - 1) {
            add(at + std::countr_zero(matches) / 8);
        }
    }
    for (; at < textEnd && count < limit; ++at) {
        if (*at == separator) {
            add(at);
        }
    }
    consumed_ = static_cast<std::size_t>(pieceStart - start_);
    if (pieceStart < textEnd && count < limit) {
        ends_[count++] = textEnd;
        filled = count;
        consumed_ = text.size();
    }
    count_ = count;
    filled_ = filled;
    componentSeparators_ = components;
}

void HL7Parts::Destroy() {
    for (std::size_t index = 0; index < count_; ++index) {
        if (parts_[index] != nullptr) {
            std::destroy_at(parts_[index]);
        }
    }
    count_ = 0;
}

HL7Object& HL7Parts::Make(std::size_t index, std::span<const HL7PartType> types, HL7PartStore& store) {
    if (index >= count_) {
        Grow(types.size(), store);
    }
    if (parts_[index] == nullptr) {
        int result = kDecoded;
        parts_[index] = types[index].make(store, {}, result);
    }
    return *parts_[index];
}

void HL7Parts::EncodeTo(std::string& out, char separator, std::size_t first) const {
    std::size_t end = count_;
    while (end > first && parts_[end - 1] == nullptr) {
        --end;
    }
    for (std::size_t index = first; index < end; ++index) {
        if (index > first) {
            out.push_back(separator);
        }
        if (parts_[index] != nullptr) {
            parts_[index]->EncodeTo(out);
        }
    }
}

std::size_t HL7Parts::Measure(const HL7Pieces& pieces, std::size_t first, std::span<const HL7PartType> types) {
    std::size_t size = (first + pieces.Filled()) * sizeof(HL7Object*);
    for (std::size_t index = 0; index < pieces.Filled(); ++index) {
        if (!pieces.At(index).empty()) {
            size += types[first + index].size;
        }
    }
    return size + std::min(pieces.ComponentSeparators(), kMostMeasured) * (sizeof(HL7Object*) + sizeof(HL7DataType));
}

int HL7Parts::DecodeFrom(const HL7Pieces& pieces, std::size_t first, std::span<const HL7PartType> types,
                         HL7PartStore& store) {
    if (pieces.Filled() > 0 && first + pieces.Filled() > count_) {
        Grow(first + pieces.Filled(), store);
    }
    for (std::size_t index = 0; index < pieces.Count(); ++index) {
        std::string_view piece = pieces.At(index);
        const std::size_t position = first + index;
        int result = kDecoded;
        if (HL7Object* part = position < count_ ? parts_[position] : nullptr; part != nullptr) {
            result = part->DecodeFrom(piece);
        } else if (!piece.empty()) {
            parts_[position] = types[position].make(store, piece, result);
        }
        // An empty piece does not matter to a part that was never made.
        if (result == kMalformed) {
            return static_cast<int>(position);
        }
    }
    return -1;
}

void HL7Parts::Grow(std::size_t count, HL7PartStore& store) {
    auto** grown = static_cast<HL7Object**>(store.Allocate(count * sizeof(HL7Object*)));
    std::fill(std::copy_n(parts_, count_, grown), grown + count, nullptr);
    parts_ = grown;
    count_ = static_cast<std::uint8_t>(count);
}

}  // namespace HL7v251::Base
