#include "hl7/base/HL7PartStore.h"

#include <new>
#include <utility>

namespace HL7v251::Base {

namespace {

// A handful of fields; what the fields of a very long message take at once.
constexpr std::size_t kSmallestChunk = 480;
constexpr std::size_t kLargestChunk = 16 * 1024;

}  // namespace

HL7PartStore::~HL7PartStore() {
    while (newest_ != nullptr) {
        auto* earlier = std::launder(reinterpret_cast<Chunk*>(newest_.get()));
        Chunk next = std::move(*earlier);
        std::destroy_at(earlier);
        newest_ = std::move(next);
    }
}

void HL7PartStore::AddChunk(std::size_t size) {
    const std::size_t room = std::max(size, std::clamp(total_, kSmallestChunk, kLargestChunk));
    Chunk chunk = std::make_unique_for_overwrite<std::byte[]>(sizeof(Chunk) + room);
    free_ = chunk.get() + sizeof(Chunk);
    left_ = room;
    total_ += room;
    ::new (chunk.get()) Chunk(std::move(newest_));
    newest_ = std::move(chunk);
}

}  // namespace HL7v251::Base
