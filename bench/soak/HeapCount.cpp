// Counts what a program has on its heap: loaded before the C library, it passes every call on and keeps two numbers,
// bytes and blocks in use, in the file that ZEL_HEAP_COUNT names, where whoever soaks the program reads them. Pages
// tell of a leak only once it has filled some; these numbers tell of its first byte.

#include <fcntl.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);
}

namespace {

struct Counts {
    std::atomic<std::int64_t> bytes;
    std::atomic<std::int64_t> blocks;
};

// What happens before the file is open is counted here.
Counts early{};
std::atomic<Counts*> counts{&early};

void* Add(void* block) {
    if (block != nullptr) {
        Counts* const now = counts;
        now->bytes += static_cast<std::int64_t>(malloc_usable_size(block));
        ++now->blocks;
    }
    return block;
}

void Remove(void* block) {
    if (block != nullptr) {
        Counts* const now = counts;
        now->bytes -= static_cast<std::int64_t>(malloc_usable_size(block));
        --now->blocks;
    }
}

__attribute__((constructor)) void Open() {
    const char* const path = std::getenv("ZEL_HEAP_COUNT");
    const int file = path == nullptr ? -1 : open(path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (file < 0 || ftruncate(file, sizeof(Counts)) != 0) {
        return;
    }
    void* const shared = mmap(nullptr, sizeof(Counts), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    if (shared != MAP_FAILED) {
        auto* const opened = static_cast<Counts*>(shared);
        opened->bytes = early.bytes.load();
        opened->blocks = early.blocks.load();
        counts = opened;
    }
    unsetenv("LD_PRELOAD");  // what the program starts is not counted
}

}  // namespace

extern "C" {

void* malloc(std::size_t size) {
    return Add(__libc_malloc(size));
}

void* calloc(std::size_t count, std::size_t size) {
    return Add(__libc_calloc(count, size));
}

void* realloc(void* block, std::size_t size) {
    Remove(block);
    void* const moved = __libc_realloc(block, size);
    if (moved == nullptr && size != 0) {
        Add(block);  // still there
        return nullptr;
    }
    return Add(moved);
}

void* memalign(std::size_t alignment, std::size_t size) {
    return Add(__libc_memalign(alignment, size));
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return Add(__libc_memalign(alignment, size));
}

int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
    *block = Add(__libc_memalign(alignment, size));
    return *block == nullptr ? ENOMEM : 0;
}

void free(void* block) {
    Remove(block);
    __libc_free(block);
}
}
