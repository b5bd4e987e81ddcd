#include "hl7/base/HL7PartStore.h"

#include <algorithm>
#include <cstring>

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

std::string_view HL7PartStore::Keep(std::string_view text) {
    char* const kept = AllocateText(text.size());
    std::memcpy(kept, text.data(), text.size());
    return {kept, text.size()};
}

void HL7PartStore::AddChunk(std::size_t size) {
    constexpr std::size_t kAlignment = alignof(void*);
    const std::size_t wanted = std::max(size, std::clamp(total_, kSmallestChunk, kLargestChunk));
    const std::size_t room = (wanted + kAlignment - 1) / kAlignment * kAlignment;
    Chunk chunk = std::make_unique_for_overwrite<std::byte[]>(sizeof(Chunk) + room);
    free_ = chunk.get() + sizeof(Chunk);
    end_ = free_ + room;
    total_ += room;
    ::new (chunk.get()) Chunk(std::move(newest_));
    newest_ = std::move(chunk);
}

}  // namespace HL7v251::Base
