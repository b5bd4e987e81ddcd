#include "hl7/base/HL7Composite.h"

#include <algorithm>

namespace HL7v251::Base {

void HL7Composite::Write(HL7Writer& out) const {
    const std::size_t start = out.Size();
    if (const auto components = Items(); components.size() == 1) {
        // As most composites have.
        components[0]->Write(out);
    } else {
        WriteParts(out, separator_, 0);
    }
    // Of components that exist but are empty, and those that a value brought along.
    out.Trim(separator_, start);
}

int HL7Composite::Read(HL7Reader& in) {
    const std::string_view text = in.text;
    if (text.empty()) {
        return kDecoded;
    }
    if (std::find(text.begin(), text.end(), separator_) == text.end()) {
        // Most composites hold one value.
        in.text.remove_prefix(text.size());
        return ReadOnlyPart({text, in.kept}) < 0 ? kDecoded : kMalformed;
    }
    const HL7Pieces pieces(text, separator_, Count());
    in.text.remove_prefix(pieces.Consumed());
    return ReadParts(pieces, 0, in.kept) < 0 ? kDecoded : kMalformed;
}

}  // namespace HL7v251::Base
