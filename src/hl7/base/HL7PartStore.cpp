#include "hl7/base/HL7PartStore.h"

#include <new>
#include <utility>

namespace HL7v251::Base {

HL7PartStore::~HL7PartStore() {
    while (newest_ != nullptr) {
        auto* earlier = std::launder(reinterpret_cast<Chunk*>(newest_.get()));
        Chunk next = std::move(*earlier);
        std::destroy_at(earlier);
        newest_ = std::move(next);
    }
}

void HL7PartStore::Add(std::size_t size) {
    Chunk chunk = std::make_unique_for_overwrite<std::byte[]>(sizeof(Chunk) + size);
    free_ = chunk.get() + sizeof(Chunk);
    left_ = size;
    ::new (chunk.get()) Chunk(std::move(newest_));
    newest_ = std::move(chunk);
}

}  // namespace HL7v251::Base
