#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>

namespace HL7v251::Base {

/// The memory in which the fields of one segment, with their components, live side by side: one allocation serves most
/// segments. Nothing is given back before the store itself goes; who places objects here destroys them before that.
class HL7PartStore {
public:
    HL7PartStore() = default;
    /// Uses up the `size` bytes at `room`, which stay with their owner, before any memory of its own; adds about as
    /// much when that is not enough.
    HL7PartStore(std::byte* room, std::size_t size)
        : free_(room), left_(size), chunkSize_(std::min(size, kLargestChunk)) {}
    ~HL7PartStore();
    HL7PartStore(const HL7PartStore&) = delete;
    HL7PartStore& operator=(const HL7PartStore&) = delete;

    /// Memory for `size` bytes, aligned for pointers.
    void* Allocate(std::size_t size) {
        constexpr std::size_t kAlignment = alignof(void*);
        const std::size_t rounded = (size + kAlignment - 1) / kAlignment * kAlignment;
        if (rounded > left_) {
            Add(std::max(rounded, chunkSize_));
        }
        void* memory = free_;
        free_ += rounded;
        left_ -= rounded;
        return memory;
    }

private:
    void Add(std::size_t size);

    // A handful of fields.
    static constexpr std::size_t kLargestChunk = 480;

    // A chunk begins with the owner of the chunk before it.
    using Chunk = std::unique_ptr<std::byte[]>;

    Chunk newest_;
    std::byte* free_ = nullptr;
    std::size_t left_ = 0;
    std::size_t chunkSize_ = kLargestChunk;
};

}  // namespace HL7v251::Base
