#include "store/CStoreLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace ZELPC {

namespace {

std::string Owner(int descriptor) {
    std::array<char, 16> text{};
    const ssize_t size = ::pread(descriptor, text.data(), text.size() - 1, 0);
    return size > 0 ? " (process " + std::string(text.data(), static_cast<std::size_t>(size)) + ")" : std::string();
}

}  // namespace

CStoreLock::CStoreLock(const std::string& path)
    : descriptor_(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0640)) {
    if (descriptor_ < 0) {
        throw std::runtime_error("cannot make " + path + ": " + std::strerror(errno));
    }
    if (::flock(descriptor_, LOCK_EX | LOCK_NB) != 0) {
        const std::string owner = Owner(descriptor_);
        ::close(descriptor_);
        throw std::runtime_error("another gateway uses this store" + owner);
    }
    const std::string own = std::to_string(::getpid());
    // Only for the message above: a disk without room for it does not make the lock weaker.
    if (::ftruncate(descriptor_, 0) != 0 || ::pwrite(descriptor_, own.data(), own.size(), 0) < 0) {
        return;
    }
}

CStoreLock::~CStoreLock() {
    ::close(descriptor_);
}

}  // namespace ZELPC
