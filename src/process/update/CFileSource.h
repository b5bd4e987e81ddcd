#pragma once

#include <sys/types.h>

#include "common/CDescriptor.h"
#include "process/update/CByteSource.h"

namespace RMUP::Process {

/// An existing file as a source of bytes.
class CFileSource : public CByteSource {
public:
    /// Opens the file for reading; look at IsOpen. It must be a regular file: at anything else, a FIFO for one, a
    /// reader would wait.
    explicit CFileSource(const char* path);

    bool IsOpen() const { return file_.IsOpen(); }

    /// The file's size; -1 with errno when it cannot be told.
    [[nodiscard]] off_t Size() const;

    /// Where the next byte stands, from the start of the file; -1 with errno when the file cannot tell.
    [[nodiscard]] off_t Tell() const;

    /// Goes to a place counted from the start of the file. False with errno on failure.
    [[nodiscard]] bool Seek(off_t offset);

protected:
    ssize_t Fill(std::span<std::uint8_t> buffer) override;

private:
    CDescriptor file_;
};

}  // namespace RMUP::Process
