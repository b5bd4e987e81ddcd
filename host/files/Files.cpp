#include "files/Files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace Host {

namespace {

[[noreturn]] void Fail(int error, const char* action, const std::string& path) {
    throw std::system_error(error, std::generic_category(), std::string(action) + " " + path);
}

void WriteNewFile(const std::filesystem::path& path, std::string_view content, const struct stat* model) {
    const FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
    if (!file) {
        Fail(errno, "create", path);
    }
    if (model != nullptr) {
        // Only root can give a file away; for anybody else the new file is as much theirs as the old one was writable.
        // The owner comes first because changing it clears mode bits.
        if (::fchown(file.get(), model->st_uid, model->st_gid) != 0 && errno != EPERM) {
            Fail(errno, "set the owner of", path);
        }
        if (::fchmod(file.get(), model->st_mode & 07777) != 0) {
            Fail(errno, "set the mode of", path);
        }
    }
    WriteFully(file.get(), content, 0, path);
    if (::fsync(file.get()) != 0) {
        Fail(errno, "sync", path);
    }
}

}  // namespace

FileDescriptor::~FileDescriptor() {
    if (fd_ >= 0) {
        const int error = errno;
        ::close(fd_);
        errno = error;
    }
}

DirectoryLock::DirectoryLock(const std::filesystem::path& directory)
    : directory_(directory), fd_(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (!fd_) {
        Fail(errno, "open", directory_);
    }
    while (::flock(fd_.get(), LOCK_EX) != 0) {
        if (errno != EINTR) {
            Fail(errno, "lock", directory_);
        }
    }
}

void DirectoryLock::Sync() const {
    if (::fsync(fd_.get()) != 0) {
        Fail(errno, "sync", directory_);
    }
}

std::string ReadWholeFile(const std::string& path, std::size_t limit) {
    auto content = ReadFileIfThere(path, limit);
    if (!content) {
        Fail(ENOENT, "open", path);
    }
    return *std::move(content);
}

std::optional<std::string> ReadFileIfThere(const std::string& path, std::size_t limit) {
    // Not blocking, because opening a pipe that nobody writes to would wait for ever.
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!file) {
        if (errno == ENOENT) {
            return std::nullopt;
        }
        Fail(errno, "open", path);
    }
    struct stat status {};
    if (::fstat(file.get(), &status) != 0) {
        Fail(errno, "read", path);
    }
    if (!S_ISREG(status.st_mode)) {
        Fail(S_ISDIR(status.st_mode) ? EISDIR : EINVAL, "read", path);
    }
    std::string content;
    char block[4096];
    while (true) {
        const ssize_t got = ::read(file.get(), block, sizeof block);
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            Fail(errno, "read", path);
        }
        content.append(block, static_cast<std::size_t>(got));
        if (content.size() > limit) {
            Fail(EFBIG, "read", path);
        }
        // A regular file gives less than it is asked for only at its end.
        if (static_cast<std::size_t>(got) < sizeof block) {
            return content;
        }
    }
}

void WriteFully(int fd, std::string_view bytes, std::size_t offset, const std::string& path) {
    while (!bytes.empty()) {
        const ssize_t written = ::pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(offset));
        if (written < 0 && errno != EINTR) {
            Fail(errno, "write", path);
        }
        if (written > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
            offset += static_cast<std::size_t>(written);
        }
    }
}

void ReplaceFile(const DirectoryLock& lock, const std::filesystem::path& path, std::string_view content) {
    // One name for all writers, who exclude each other by the lock: a writer that was killed leaves at most one file
    // behind, and the next one clears it away.
    const std::filesystem::path temporary = path.parent_path() / ("." + path.filename().string() + ".new");
    if (::unlink(temporary.c_str()) != 0 && errno != ENOENT) {
        Fail(errno, "remove", temporary);
    }
    struct stat status {};
    const bool exists = ::stat(path.c_str(), &status) == 0;
    try {
        WriteNewFile(temporary, content, exists ? &status : nullptr);
        if (::rename(temporary.c_str(), path.c_str()) != 0) {
            Fail(errno, "replace", path);
        }
    } catch (...) {
        ::unlink(temporary.c_str());
        throw;
    }
    lock.Sync();
}

}  // namespace Host
