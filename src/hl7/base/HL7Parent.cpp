#include "hl7/base/HL7Parent.h"

#include <algorithm>
#include <memory>
#include <utility>

namespace HL7v251::Base {

HL7Parent::HL7Parent(HL7Parent&& other) noexcept
    : HL7Object(std::move(other)),
      store_(std::exchange(other.store_, nullptr)),
      items_(std::exchange(other.items_, nullptr)),
      count_(std::exchange(other.count_, 0U)),
      ownsStore_(std::exchange(other.ownsStore_, false)) {}

HL7Parent::~HL7Parent() {
    if (ownsStore_) {
        const std::unique_ptr<HL7PartStore> owned(store_);
    }
}

void HL7Parent::MakeRoom(std::size_t room) {
    auto** const moved = static_cast<HL7Object**>(Store().Allocate(room * sizeof(HL7Object*)));
    std::fill(std::copy_n(items_, count_, moved), moved + room, nullptr);
    items_ = moved;
}

void HL7Parent::MakeStore() {
    store_ = std::make_unique<HL7PartStore>().release();
    ownsStore_ = true;
}

}  // namespace HL7v251::Base
