#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string_view>

namespace HL7v251::Base {

/// The largest number of parts that a segment or composite can have.
inline constexpr std::size_t kMaxParts = 72;

/// A piece that is not empty: where it lies in the text, and which one it is.
struct HL7Piece {
    // Without initial values, so that an array of pieces takes no time to make.
    std::size_t begin;
    std::size_t length;
    std::size_t index;
};

/// A text cut at a separator into at most `limit` pieces.
class HL7Pieces {
public:
    HL7Pieces(std::string_view text, char separator, std::size_t limit);

    /// How many pieces there are, empty ones included.
    std::size_t Count() const { return count_; }
    /// The pieces that are not empty, in order.
    std::span<const HL7Piece> Filled() const { return {filled_.data(), filledCount_}; }
    std::string_view Text(const HL7Piece& piece) const { return {text_ + piece.begin, piece.length}; }
    /// The length of the text up to the end of the last piece, its separator included.
    std::size_t Consumed() const { return consumed_; }

    /// Makes the pieces those of a copy of the text.
    void MoveTo(std::string_view copy) { text_ = copy.data(); }

private:
    const char* text_;
    std::size_t count_ = 0;
    std::size_t filledCount_ = 0;
    std::size_t consumed_ = 0;
    std::array<HL7Piece, kMaxParts> filled_;
};

}  // namespace HL7v251::Base
