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
    for (HL7Object* child : children) {
        const int result = child->Read(in);
        if (result < kDecoded) {
            return result;
        }
    }
    return kDecoded;
}

}  // namespace HL7v251::Base
