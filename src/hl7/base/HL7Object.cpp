#include "hl7/base/HL7Object.h"

namespace HL7v251::Base {

std::string HL7Object::Encode() const {
    std::string text;
    EncodeTo(text);
    return text;
}

int HL7Object::Decode(std::string& text) {
    std::string_view rest(text);
    const int result = DecodeFrom(rest);
    text.erase(0, text.size() - rest.size());
    return result;
}

void HL7Object::EncodeTo(std::string& out) const {
    HL7Writer writer(out);
    Write(writer);
}

int HL7Object::DecodeFrom(std::string_view& text) {
    HL7Reader in{text};
    const int result = Read(in);
    text = in.text;
    return result;
}

}  // namespace HL7v251::Base
