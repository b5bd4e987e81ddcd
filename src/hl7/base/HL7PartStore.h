#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>

namespace HL7v251::Base {

/// The memory in which fields and their components live side by side, so that a message of a thousand values takes a
/// few allocations. Nothing is given back before the store itself goes; who places objects here destroys them before
/// that.
class HL7PartStore {
public:
    HL7PartStore() = default;
    ~HL7PartStore();
    HL7PartStore(const HL7PartStore&) = delete;
    HL7PartStore& operator=(const HL7PartStore&) = delete;

    /// Memory for `size` bytes, aligned for pointers.
    void* Allocate(std::size_t size) {
        constexpr std::size_t kAlignment = alignof(void*);
        const std::size_t rounded = (size + kAlignment - 1) / kAlignment * kAlignment;
        if (rounded > left_) {
            AddChunk(rounded);
        }
        void* memory = free_;
        free_ += rounded;
        left_ -= rounded;
        return memory;
    }

private:
    // A chunk begins with the owner of the chunk before it.
    using Chunk = std::unique_ptr<std::byte[]>;

    void AddChunk(std::size_t size);

    Chunk newest_;
    std::byte* free_ = nullptr;
    std::size_t left_ = 0;
    std::size_t total_ = 0;
};

}  // namespace HL7v251::Base
