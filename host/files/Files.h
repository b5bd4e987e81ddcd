#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace Host {

/// Owns a file descriptor. Closing leaves errno as it was.
class FileDescriptor {
public:
    explicit FileDescriptor(int fd) : fd_(fd) {}
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor();

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }

private:
    int fd_;
};

/// Holds a directory for one writer among all threads and processes that take the same lock; waits for it.
class DirectoryLock {
public:
    /// Throws std::system_error when the directory cannot be opened or locked.
    explicit DirectoryLock(const std::filesystem::path& directory);

    /// Makes renames in the directory last through a power cut. Throws std::system_error.
    void Sync() const;

private:
    std::filesystem::path directory_;
    FileDescriptor fd_;
};

/// The content of a regular file. Throws std::system_error when it is none, cannot be read or holds more than `limit`
/// bytes.
[[nodiscard]] std::string ReadWholeFile(const std::string& path, std::size_t limit);

/// The same; nothing when there is no such file.
[[nodiscard]] std::optional<std::string> ReadFileIfThere(const std::string& path, std::size_t limit);

/// Writes all bytes at `offset`. Throws std::system_error.
void WriteFully(int fd, std::string_view bytes, std::size_t offset, const std::string& path);

/// Puts `content` in place of the file, or makes it, such that a reader or a power cut meets either the old or the new
/// content, whole. Mode and, where allowed, owner stay. `lock` is held on the file's directory. Throws
/// std::system_error; the old file is untouched then, unless only making the rename durable failed.
void ReplaceFile(const DirectoryLock& lock, const std::filesystem::path& path, std::string_view content);

}  // namespace Host
