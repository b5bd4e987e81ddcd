#include "process/update/CByteSource.h"

#include <algorithm>
#include <cerrno>

namespace RMUP::Process {

namespace {

/// The system makes larger pages of larger pieces; of still larger ones the processor's cache holds none.
constexpr std::size_t kBufferSize = std::size_t{256} * 1024;

/// Pieces of this size are read to where they are wanted.
constexpr std::size_t kDirectSize = std::size_t{64} * 1024;

}  // namespace

CByteSource::CByteSource() : buffer_(std::make_unique_for_overwrite<std::uint8_t[]>(kBufferSize)) {}

std::span<const std::uint8_t> CByteSource::Take(std::size_t most) {
    if (next_ == end_) {
        const ssize_t count = Fill({buffer_.get(), kBufferSize});
        if (count <= 0) {
            errno = count == 0 ? 0 : errno;
            return {};
        }
        next_ = 0;
        end_ = static_cast<std::size_t>(count);
    }
    const std::span<const std::uint8_t> bytes(buffer_.get() + next_, std::min(most, end_ - next_));
    next_ += bytes.size();
    return bytes;
}

bool CByteSource::Read(std::span<std::uint8_t> bytes) {
    while (!bytes.empty()) {
        if (next_ == end_ && bytes.size() >= kDirectSize) {
            // Past the buffer, so that it is moved once.
            const ssize_t count = Fill(bytes);
            if (count <= 0) {
                return false;
            }
            bytes = bytes.subspan(static_cast<std::size_t>(count));
            continue;
        }
        const auto piece = Take(bytes.size());
        if (piece.empty()) {
            return false;
        }
        std::ranges::copy(piece, bytes.begin());
        bytes = bytes.subspan(piece.size());
    }
    return true;
}

bool CByteSource::Skip(std::size_t count) {
    while (count > 0) {
        const auto piece = Take(count);
        if (piece.empty()) {
            return false;
        }
        count -= piece.size();
    }
    return true;
}

}  // namespace RMUP::Process
