#pragma once

#include <unistd.h>

#include <cstdint>
#include <span>
#include <utility>

/// Owns a descriptor. Every failure ends the program with its reason: a benchmark without its peer measures nothing.
class CSocket {
public:
    CSocket() = default;
    explicit CSocket(int descriptor, const char* what);
    CSocket(CSocket&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    CSocket& operator=(CSocket&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~CSocket() {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
    }

    /// Host byte order; `kind` is SOCK_STREAM, which then listens, or SOCK_DGRAM.
    static CSocket Bound(int kind, std::uint32_t address, std::uint16_t port);
    static CSocket Connected(std::uint32_t address, std::uint16_t port);

    int Get() const { return descriptor_; }
    /// All of it, or the program ends.
    void Write(std::span<const std::uint8_t> bytes) const;

private:
    int descriptor_ = -1;
};

/// Ends the program with this reason and errno.
[[noreturn]] void Give(const char* what);
