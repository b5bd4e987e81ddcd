#include "process/update/COutputFile.h"

#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <utility>

namespace RMUP::Process {

namespace {

/// Less is not worth a system call of its own.
constexpr std::size_t kBufferSize = std::size_t{16} * 1024;

/// Whole pages are written, as a page that is written in two pieces costs the system half as much again.
constexpr std::size_t kPageSize = 4096;
static_assert(kBufferSize % kPageSize == 0);
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
    const std::size_t waiting = used_ + bytes.size();
    if (waiting >= kBufferSize) {
        const auto rest = bytes.last(waiting % kPageSize);
        if (!WriteOut(bytes.first(bytes.size() - rest.size()))) {
            return false;
        }
        bytes = rest;
    }
    std::copy_n(bytes.data(), bytes.size(), buffer_.get() + used_);
    used_ += bytes.size();
    return !failed_;
}

bool COutputFile::WriteOut(std::span<const std::uint8_t> bytes) {
    std::span<const std::uint8_t> buffered(buffer_.get(), std::exchange(used_, 0));
    while (!failed_ && !(buffered.empty() && bytes.empty())) {
        const iovec both[] = {{const_cast<std::uint8_t*>(buffered.data()), buffered.size()},
                              {const_cast<std::uint8_t*>(bytes.data()), bytes.size()}};
        const ssize_t count = writev(file_.Get(), both, std::size(both));
        if (count > 0) {
            const auto written = static_cast<std::size_t>(count);
            const std::size_t ofBuffer = std::min(written, buffered.size());
            buffered = buffered.subspan(ofBuffer);
            bytes = bytes.subspan(written - ofBuffer);
        } else if (count == 0 || errno != EINTR) {
            errno = count == 0 ? ENOSPC : errno;
            failed_ = true;
        }
    }
    return !failed_;
}

bool COutputFile::Close() {
    const bool whole = WriteOut({});
    // Some file systems tell of a write that failed only now.
    const bool closed = close(file_.Release()) == 0;
    return whole && closed;
}

}  // namespace RMUP::Process
