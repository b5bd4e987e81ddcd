#include "hl7/base/HL7Composite.h"

namespace HL7v251::Base {

HL7Composite::~HL7Composite() {
    parts_.Destroy();
    if (ownsStore_) {
        std::unique_ptr<HL7PartStore> owned(store_);
    }
}

void HL7Composite::EncodeTo(std::string& out) const {
    const std::size_t start = out.size();
    parts_.EncodeTo(out, separator_, 0);
    // Also separators that a value brought along.
    while (out.size() > start && out.back() == separator_) {
        out.pop_back();
    }
}

int HL7Composite::DecodeFrom(std::string_view& text) {
    if (text.empty()) {
        return kDecoded;
    }
    const auto types = Types();
    const HL7Pieces pieces(text, separator_, types.size());
    text.remove_prefix(pieces.Consumed());
    return parts_.DecodeFrom(pieces, 0, types, Store()) < 0 ? kDecoded : kMalformed;
}

HL7PartStore& HL7Composite::Store() {
    if (store_ == nullptr) {
        store_ = std::make_unique<HL7PartStore>().release();
        ownsStore_ = true;
    }
    return *store_;
}

}  // namespace HL7v251::Base
