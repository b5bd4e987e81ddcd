#include "hl7/base/HL7Message.h"

namespace HL7v251::Base {

void HL7Message::EncodeChildren(std::span<const HL7Object* const> children, std::string& out) {
    for (const HL7Object* child : children) {
        child->EncodeTo(out);
    }
}

int HL7Message::DecodeChildren(std::span<HL7Object* const> children, std::string_view& text) {
    for (HL7Object* child : children) {
        if (child->DecodeFrom(text) == kMalformed) {
            return kMalformed;
        }
    }
    return kDecoded;
}

}  // namespace HL7v251::Base
