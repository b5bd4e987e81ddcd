#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

namespace HL7v251::Base {

/// The memory in which the parts of a message and their texts live side by side, so that a message of a thousand values
/// takes a few allocations. All of it is given back at once, and what lives here is not destroyed before: it must own
/// nothing outside.
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
        if (rounded > Left()) {
            AddChunk(rounded);
        }
        return std::exchange(free_, free_ + rounded);
    }

    /// Memory for `size` characters. They fill a chunk from its other end, where nothing needs to be aligned.
    char* AllocateText(std::size_t size) {
        if (size > Left()) {
            AddChunk(size);
        }
        end_ -= size;
        return reinterpret_cast<char*>(end_);
    }

    /// A copy of `text` that lives here.
    std::string_view Keep(std::string_view text);

    /// An object that lives here, and whatever it comes to hold, too.
    template <class T>
    T& Make() {
        static_assert(alignof(T) <= alignof(void*), "what is aligned for");
        T* const made = ::new (Allocate(sizeof(T))) T;
        made->LiveIn(*this);
        return *made;
    }

private:
    // A chunk begins with the owner of the chunk before it.
    using Chunk = std::unique_ptr<std::byte[]>;

    std::size_t Left() const { return static_cast<std::size_t>(end_ - free_); }
    void AddChunk(std::size_t size);

    Chunk newest_;
    std::byte* free_ = nullptr;
    std::byte* end_ = nullptr;
    std::size_t total_ = 0;
};

}  // namespace HL7v251::Base
