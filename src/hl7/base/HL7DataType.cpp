#include "hl7/base/HL7DataType.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>

namespace HL7v251::Base {

HL7DataType::~HL7DataType() {
    if (ownsStore_) {
        const std::unique_ptr<HL7PartStore> owned(store_);
    }
}

void HL7DataType::SetValue(std::string_view value) {
    size_ = value.size();
    if (value.empty()) {
        return;
    }
    if (value.size() <= room_) {
        // It may be a piece of the value that it replaces.
        std::memmove(const_cast<char*>(text_), value.data(), value.size());
        return;
    }
    if (store_ == nullptr) {
        store_ = std::make_unique<HL7PartStore>().release();
        ownsStore_ = true;
    }
    // What was outgrown stays in the store, so that a value that keeps growing gets room ahead.
    const std::size_t room = std::max<std::size_t>(value.size(), 2 * std::size_t{room_});
    char* const text = store_->AllocateText(room);
    HL7Writer::Copy(text, value.data(), value.size());
    text_ = text;
    room_ = static_cast<std::uint32_t>(std::min<std::size_t>(room, std::numeric_limits<std::uint32_t>::max()));
}

}  // namespace HL7v251::Base
