#include "CountedHeap.h"

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>

namespace {

constexpr std::size_t kBlockOverhead = sizeof(std::size_t);
std::atomic<std::size_t> live{0};
std::atomic<std::size_t> peak{0};
std::atomic<std::size_t> blocks{0};

}  // namespace

void* operator new(std::size_t size) {
    void* memory = std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    const std::size_t now = live += malloc_usable_size(memory) + kBlockOverhead;
    peak = std::max(peak.load(), now);
    ++blocks;
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

namespace CountedHeap {

std::size_t Live() {
    return live;
}

std::size_t Peak() {
    return peak;
}

void RestartPeak() {
    peak = live.load();
}

std::size_t Blocks() {
    return blocks;
}

}  // namespace CountedHeap
