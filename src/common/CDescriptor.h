#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

/// Owns one file descriptor and closes it. The value -1 means none. Closing leaves errno as it was, so that an error
/// can be reported after the descriptor is gone. Used by one thread at a time.
class CDescriptor {
public:
    CDescriptor() = default;
    explicit CDescriptor(int descriptor) : descriptor_(descriptor) {}
    CDescriptor(CDescriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    CDescriptor& operator=(CDescriptor&& other) noexcept {
        Reset(std::exchange(other.descriptor_, -1));
        return *this;
    }
    CDescriptor(const CDescriptor&) = delete;
    CDescriptor& operator=(const CDescriptor&) = delete;
    ~CDescriptor() { Reset(); }

    int Get() const { return descriptor_; }
    bool IsOpen() const { return descriptor_ >= 0; }

    /// Gives the descriptor away without closing it.
    int Release() { return std::exchange(descriptor_, -1); }

    /// Closes what is held and takes over another descriptor.
    void Reset(int descriptor = -1) {
        if (descriptor_ >= 0) {
            const int saved = errno;
            ::close(descriptor_);
            errno = saved;
        }
        descriptor_ = descriptor;
    }

private:
    int descriptor_ = -1;
};
