#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "common/CDescriptor.h"

/// Opens a regular file for reading, with further flags of open(). Closed, with errno, when that fails. Anything else
/// counts as no file, with errno EINVAL: opening a FIFO that somebody put in its place would wait for a writer.
[[nodiscard]] inline CDescriptor OpenRegularFile(const char* path, int flags = 0) {
    CDescriptor file(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | flags));
    struct stat status {};
    if (file.IsOpen() && (fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode))) {
        file.Reset();
        errno = EINVAL;
    }
    return file;
}
