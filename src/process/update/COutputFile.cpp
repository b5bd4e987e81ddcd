#include "process/update/COutputFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace RMUP::Process {

namespace {

constexpr std::size_t kBufferSize = std::size_t{64} * 1024;

/// Pieces of this size are worth a system call of their own.
constexpr std::size_t kDirectSize = std::size_t{16} * 1024;
static_assert(kDirectSize <= kBufferSize);
constexpr mode_t kMode = 0644;

/// Temporary directories are everybody's: what somebody put in the file's place, a link, a FIFO or a file that he may
/// write to, goes first, and when it does not go the file cannot be made.
int Make(const char* path) {
    unlink(path);
    return open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, kMode);
}

}  // namespace

COutputFile::COutputFile(const char* path)
    : file_(Make(path)), buffer_(std::make_unique_for_overwrite<std::uint8_t[]>(kBufferSize)) {}

bool COutputFile::Write(std::span<const std::uint8_t> bytes) {
    if (used_ + bytes.size() > kBufferSize || bytes.size() >= kDirectSize) {
        if (!Flush()) {
            return false;
        }
    }
    if (bytes.size() >= kDirectSize) {
        return WriteOut(bytes);
    }
    std::ranges::copy(bytes, buffer_.get() + used_);
    used_ += bytes.size();
    return !failed_;
}

bool COutputFile::Flush() {
    const std::size_t count = std::exchange(used_, 0);
    return WriteOut({buffer_.get(), count});
}

bool COutputFile::WriteOut(std::span<const std::uint8_t> bytes) {
    while (!failed_ && !bytes.empty()) {
        const ssize_t count = write(file_.Get(), bytes.data(), bytes.size());
        if (count > 0) {
            bytes = bytes.subspan(static_cast<std::size_t>(count));
        } else if (count == 0 || errno != EINTR) {
            errno = count == 0 ? ENOSPC : errno;
            failed_ = true;
        }
    }
    return !failed_;
}

bool COutputFile::Close() {
    const bool whole = Flush();
    // Some file systems tell of a write that failed only now.
    const bool closed = close(file_.Release()) == 0;
    return whole && closed;
}

}  // namespace RMUP::Process
