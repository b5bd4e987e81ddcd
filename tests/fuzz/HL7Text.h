#pragma once

#include <malloc.h>

#include <cstdio>

#include "fuzz/Fuzz.h"

extern "C" [[gnu::weak]] std::size_t __sanitizer_get_current_allocated_bytes();

namespace Fuzz {

/// Bytes on the heap, also where a sanitizer has replaced the allocator.
inline std::size_t HeapBytes() {
    if (__sanitizer_get_current_allocated_bytes != nullptr) {
        return __sanitizer_get_current_allocated_bytes();
    }
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

/// What a decoded text may take: a small multiple of its length, beside what an empty message takes.
inline std::size_t MostHeapBytes(std::size_t textSize) {
    return 50 * textSize + 16 * std::size_t{1024};
}

/// Puts the stream aside on which texts that do not fit are told line by line; its descriptor stays for what a
/// sanitizer has to say.
inline void SilenceDecoder() {
    static std::FILE* const nowhere = stderr = std::fopen("/dev/null", "w");
    Require(nowhere != nullptr, "there is a /dev/null");
}

/// Hands the text behind the first byte to the decoder that this byte chooses.
inline int DecodeChosen(std::span<void (*const)(std::string_view)> decoders, const std::uint8_t* data,
                        std::size_t size) {
    SilenceDecoder();
    Bytes input(data, size);
    const std::size_t chosen = TakeByte(input) % decoders.size();
    decoders[chosen](Text(input));
    return 0;
}

}  // namespace Fuzz
