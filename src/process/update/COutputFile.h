#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "common/CDescriptor.h"

namespace RMUP::Process {

/// A file that is written from its beginning, through a buffer. What it holds is whole only after a Close that
/// succeeded; a file that is just destroyed was given up, and what is still in the buffer is dropped.
class COutputFile {
public:
    /// Makes the file anew, in place of whatever is there; look at IsOpen. Only its owner may write to it.
    explicit COutputFile(const char* path);

    bool IsOpen() const { return file_.IsOpen(); }

    /// Appends. False with errno when the bytes did not fit or the device failed; the file is of no use then.
    [[nodiscard]] bool Write(std::span<const std::uint8_t> bytes);

    /// Writes out the buffer and closes. False with errno when the file is not whole.
    [[nodiscard]] bool Close();

private:
    /// Writes the buffer and these bytes behind it; the buffer is empty then.
    bool WriteOut(std::span<const std::uint8_t> bytes);

    CDescriptor file_;
    std::unique_ptr<std::uint8_t[]> buffer_;
    std::size_t used_ = 0;
    bool failed_ = false;
};

}  // namespace RMUP::Process
