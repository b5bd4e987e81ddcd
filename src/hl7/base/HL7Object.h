#pragma once

#include <string>
#include <string_view>

#include "hl7/base/HL7Writer.h"

namespace HL7v251::Base {

/// Results of decoding, the same for every element.
enum DecodeResult : int {
    kMalformed = -1,  ///< the element is there but cannot be read
    kAbsent = 0,      ///< the text does not start with this element
    kDecoded = 1,     ///< the element was read, or is optional and not there
};

/// A text that is being read.
struct HL7Reader {
    std::string_view text;  ///< what is left of it
    bool kept = false;      ///< whether the text lives as long as the values that are read from it
};

/// The root of everything that can write itself as HL7 text and read itself from it. All text is a string of 8-bit
/// bytes; nothing is escaped, repeated or converted. Elements are not copied; a message can be moved as a whole, for
/// example out of the function that fills it, and what was moved from is empty.
class HL7Object {
public:
    static constexpr char kSegmentTerminator = '\r';
    static constexpr char kFieldSeparator = '|';
    static constexpr char kComponentSeparator = '^';
    static constexpr char kSubcomponentSeparator = '&';

    HL7Object() = default;
    virtual ~HL7Object() = default;
    HL7Object(HL7Object&&) noexcept = default;
    HL7Object(const HL7Object&) = delete;
    HL7Object& operator=(const HL7Object&) = delete;

    /// The text of this element.
    std::string Encode() const;

    /// Reads this element from the front of `text` and removes what it recognised; returns a DecodeResult.
    int Decode(std::string& text);

    /// As Encode, but appends to `out`.
    void EncodeTo(std::string& out) const;

    /// As Decode; `text` stays a tail of what it was.
    int DecodeFrom(std::string_view& text);

    /// What an element implements: one writer and one reader go through a whole message, however deep its tree is.
    virtual void Write(HL7Writer& out) const = 0;
    virtual int Read(HL7Reader& in) = 0;
};

}  // namespace HL7v251::Base
