#include "hl7/base/HL7DataType.h"

namespace HL7v251::Base {

void HL7DataType::EncodeTo(std::string& out) const {
    out.append(value_);
}

int HL7DataType::DecodeFrom(std::string_view& text) {
    value_.assign(text);
    text.remove_prefix(text.size());
    return kDecoded;
}

}  // namespace HL7v251::Base
