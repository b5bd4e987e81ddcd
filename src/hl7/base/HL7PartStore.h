#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace HL7v251::Base {

/// The memory in which the fields of one segment, with their components, live side by side: one allocation serves most
/// segments. Nothing is given back before the store itself goes; who places objects here destroys them before that.
class HL7PartStore {
public:
    HL7PartStore() = default;
    ~HL7PartStore();
    HL7PartStore(const HL7PartStore&) = delete;
    HL7PartStore& operator=(const HL7PartStore&) = delete;

    /// Makes room for `size` bytes in one piece, so that what is allocated next lies together and nothing is wasted.
    void Reserve(std::size_t size);

    /// Memory for `size` bytes, aligned for pointers.
    void* Allocate(std::size_t size) {
        constexpr std::size_t kAlignment = alignof(void*);
        const std::size_t rounded = (size + kAlignment - 1) / kAlignment * kAlignment;
        if (rounded > left_) {
            Reserve(rounded > kChunkSize ? rounded : kChunkSize);
        }
        void* memory = free_;
        free_ += rounded;
        left_ -= rounded;
        return memory;
    }

private:
    // The size of a chunk that nobody reserved: a handful of fields.
    static constexpr std::size_t kChunkSize = 480;

    // A chunk begins with the owner of the chunk before it.
    using Chunk = std::unique_ptr<std::byte[]>;

    Chunk newest_;
    std::byte* free_ = nullptr;
    std::size_t left_ = 0;
};

}  // namespace HL7v251::Base
