#include "hl7/base/HL7Message.h"

namespace HL7v251::Base {

void HL7Message::WriteChildren(std::span<const HL7Object* const> children, HL7Writer& out) {
    for (const HL7Object* child : children) {
        child->Write(out);
    }
}

int HL7Message::ReadChildren(std::span<HL7Object* const> children, HL7Reader& in) {
    for (HL7Object* child : children) {
        if (child->Read(in) == kMalformed) {
            return kMalformed;
        }
    }
    return kDecoded;
}

}  // namespace HL7v251::Base
