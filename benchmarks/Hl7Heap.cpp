/// Prints how many bytes on the heap an empty and a filled result message take, as JSON, and writes the filled message
/// to the file that is named, for others to measure themselves on.

#include <malloc.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <new>

#include "ThirtyAnalytes.h"

namespace {

// What the allocator keeps beside each block.
constexpr std::size_t kBlockOverhead = sizeof(std::size_t);
std::size_t live = 0;

}  // namespace

void* operator new(std::size_t size) {
    void* memory = std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    live += malloc_usable_size(memory) + kBlockOverhead;
    return memory;
}

void operator delete(void* memory) noexcept {
    if (memory != nullptr) {
        live -= malloc_usable_size(memory) + kBlockOverhead;
        std::free(memory);
    }
}

void operator delete(void* memory, std::size_t) noexcept {
    operator delete(memory);
}

int main(int count, char** arguments) {
    const std::size_t before = live;
    ZELHL7::COUL_R22Wrap message;
    const std::size_t empty = live - before + sizeof(message);
    FillThirtyAnalytes(message);
    const std::size_t filled = live - before + sizeof(message);
    std::cout << R"({"empty": )" << empty << R"(, "filled": )" << filled << "}\n";
    if (count == 2) {
        std::string text;
        message.GetMessageText(text);
        return (std::ofstream(arguments[1], std::ios::binary) << text).flush() ? 0 : 1;
    }
    return 0;
}
