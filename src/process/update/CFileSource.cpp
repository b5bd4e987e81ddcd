#include "process/update/CFileSource.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "common/RegularFile.h"

namespace RMUP::Process {

CFileSource::CFileSource(const char* path) : file_(OpenRegularFile(path)) {}

off_t CFileSource::Size() const {
    struct stat status {};
    return fstat(file_.Get(), &status) == 0 ? status.st_size : -1;
}

off_t CFileSource::Tell() const {
    const off_t position = lseek(file_.Get(), 0, SEEK_CUR);
    return position < 0 ? -1 : position - static_cast<off_t>(BytesAhead());
}

bool CFileSource::Seek(off_t offset) {
    if (lseek(file_.Get(), offset, SEEK_SET) < 0) {
        return false;
    }
    DropBytesAhead();
    return true;
}

ssize_t CFileSource::Fill(std::span<std::uint8_t> buffer) {
    return TEMP_FAILURE_RETRY(read(file_.Get(), buffer.data(), buffer.size()));
}

}  // namespace RMUP::Process
