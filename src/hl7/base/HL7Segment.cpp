#include "hl7/base/HL7Segment.h"

#include <algorithm>

#include "hl7/base/HL7ParsingError.h"

namespace HL7v251::Base {

namespace {

constexpr std::string_view kHeaderName = "MSH";
// The name and the separator behind it.
constexpr std::size_t kPrefixLength = 4;

// The first field of the header is the separator behind its name, so it is neither written nor cut out as a field.
std::size_t FirstField(std::string_view name) {
    return name == kHeaderName ? 1 : 0;
}

}  // namespace

void HL7Segment::Write(HL7Writer& out) const {
    const std::size_t start = out.Size();
    const std::string_view name = Name();
    out.Put(name);
    out.Put(kFieldSeparator);
    WriteParts(out, kFieldSeparator, FirstField(name));
    out.Trim(kFieldSeparator, start + kPrefixLength);
    out.Put(kSegmentTerminator);
}

int HL7Segment::Read(HL7Reader& in) {
    const std::string_view name = Name();
    if (!in.text.starts_with(name)) {
        return kAbsent;
    }
    std::string_view line = in.text.substr(0, in.text.find(kSegmentTerminator));
    in.text.remove_prefix(std::min(line.size() + 1, in.text.size()));
    line.remove_prefix(std::min(kPrefixLength, line.size()));

    HL7Pieces pieces(line, kFieldSeparator, Count() - FirstField(name));
    // The values of a new segment are pieces of one copy of the line. Those of an old one may be kept already.
    const bool kept = !HasParts() && !pieces.Filled().empty();
    if (kept) {
        pieces.MoveTo(Store().Keep(line.substr(0, pieces.Consumed())));
    }
    const std::size_t first = FirstField(name);
    if (first > 0) {
        HL7Reader separator{{&kFieldSeparator, 1}};
        if (Make(0).Read(separator) == kMalformed) {
            WriteParsingError({"The FieldSeparator parsing error"});
        }
    }
    const int malformed = ReadParts(pieces, first, kept);
    if (malformed >= 0) {
        WriteParsingError({name, " Segment's ", std::to_string(malformed + 1), "th field has a parsing error"});
        return kMalformed;
    }
    return kDecoded;
}

}  // namespace HL7v251::Base
