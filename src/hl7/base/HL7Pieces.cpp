#include "hl7/base/HL7Pieces.h"

#include <bit>
#include <cstdint>
#include <cstring>

namespace HL7v251::Base {

namespace {

constexpr std::size_t kWordSize = sizeof(std::uint64_t);
constexpr std::uint64_t kLowBits = 0x7f7f7f7f7f7f7f7f;
constexpr std::uint64_t kEachByte = 0x0101010101010101;

// Eight characters as one number, the first one lowest.
std::uint64_t LoadWord(const char* text) {
    std::uint64_t word = 0;
    std::memcpy(&word, text, kWordSize);
    return std::endian::native == std::endian::little ? word : __builtin_bswap64(word);
}

// The top bit of each character of `word` that equals `c`, no other bits.
std::uint64_t Matches(std::uint64_t word, char c) {
    const std::uint64_t differences = word ^ (kEachByte * static_cast<unsigned char>(c));
    return ~(((differences & kLowBits) + kLowBits) | differences | kLowBits);
}

}  // namespace

// Eight characters at a time: cutting is most of the work of decoding.
HL7Pieces::HL7Pieces(std::string_view text, char separator, std::size_t limit) : text_(text.data()) {
    const char* const textStart = text.data();
    const char* const textEnd = textStart + text.size();
    const char* at = textStart;
    const char* pieceStart = textStart;
    std::size_t count = 0;
    std::size_t filled = 0;
    const auto add = [&](const char* end) {
        if (end != pieceStart) {
            filled_[filled++] = {static_cast<std::size_t>(pieceStart - textStart),
                                 static_cast<std::size_t>(end - pieceStart), count};
        }
        ++count;
    };
    for (; textEnd - at >= static_cast<std::ptrdiff_t>(kWordSize) && count < limit; at += kWordSize) {
        for (std::uint64_t matches = Matches(LoadWord(at), separator); matches != 0 && count < limit;
             matches &= matches - 1) {
            const char* const end = at + static_cast<unsigned>(std::countr_zero(matches)) / 8;
            add(end);
            pieceStart = end + 1;
        }
    }
    for (; at < textEnd && count < limit; ++at) {
        if (*at == separator) {
            add(at);
            pieceStart = at + 1;
        }
    }
    if (pieceStart < textEnd && count < limit) {
        add(textEnd);
        pieceStart = textEnd;
    }
    count_ = count;
    filledCount_ = filled;
    consumed_ = static_cast<std::size_t>(pieceStart - textStart);
}

}  // namespace HL7v251::Base
