#include "hl7/base/HL7SegGroup.h"

namespace HL7v251::Base {

void HL7SegGroup::EncodeChildren(std::span<const HL7Object* const> children, std::string& out) {
    for (const HL7Object* child : children) {
        const std::size_t start = out.size();
        child->EncodeTo(out);
        if (out.size() > start && out.back() != kSegmentTerminator) {
            out.push_back(kSegmentTerminator);
        }
    }
}

int HL7SegGroup::DecodeChildren(std::span<HL7Object* const> children, std::string_view& text) {
    for (HL7Object* child : children) {
        const int result = child->DecodeFrom(text);
        if (result < kDecoded) {
            return result;
        }
    }
    return kDecoded;
}

}  // namespace HL7v251::Base
