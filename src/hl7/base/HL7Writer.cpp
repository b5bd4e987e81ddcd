#include "hl7/base/HL7Writer.h"

namespace HL7v251::Base {

void HL7Writer::Flush() {
    out_.append(buffer_, Buffered());
    at_ = buffer_;
}

void HL7Writer::PutLong(std::string_view text) {
    Flush();
    out_.append(text);
}

void HL7Writer::RemoveLast() {
    if (Buffered() > 0) {
        --at_;
    } else {
        out_.pop_back();
    }
}

}  // namespace HL7v251::Base
