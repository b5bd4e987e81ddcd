#include "hl7/base/HL7SegGroup.h"

namespace HL7v251::Base {

void HL7SegGroup::WriteChildren(std::span<const HL7Object* const> children, HL7Writer& out) {
    for (const HL7Object* child : children) {
        const std::size_t start = out.Size();
        child->Write(out);
        if (out.Size() > start && out.Back() != kSegmentTerminator) {
            out.Put(kSegmentTerminator);
        }
    }
}

int HL7SegGroup::ReadChildren(std::span<HL7Object* const> children, HL7Reader& in) {
    const std::string_view text = in.text;
    for (HL7Object* child : children) {
        const int result = child->Read(in);
        if (result == kAbsent) {
            // Segments of the same kinds may belong to another group that begins like this one.
            in.text = text;
        }
        if (result < kDecoded) {
            return result;
        }
    }
    return kDecoded;
}

}  // namespace HL7v251::Base
