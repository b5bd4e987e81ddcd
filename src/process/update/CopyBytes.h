#pragma once

#include <cstddef>
#include <cstdint>

#include "process/update/CByteSource.h"
#include "process/update/COutputFile.h"

namespace RMUP::Process {

/// What is copied is counted in pieces of this size, and progress looked at after each.
inline constexpr std::size_t kChunkSize = 4096;

enum class Copied {
    kWhole,
    kNotRead,    ///< the source ended, with errno 0, or failed, with its errno
    kNotWritten  ///< the file failed, with its errno
};

/// Copies the next `left` bytes of the source, and tells `count` of each chunk that is on its way to the file. What was
/// copied is taken off `left`, so that a copying whose source failed can be taken up again.
template <typename Count>
[[nodiscard]] Copied CopyBytes(CByteSource& source, COutputFile& file, std::size_t& left, Count count) {
    while (left > 0) {
        const auto piece = source.Take(left);
        if (piece.empty()) {
            return Copied::kNotRead;
        }
        if (!file.Write(piece)) {
            return Copied::kNotWritten;
        }
        left -= piece.size();
        std::size_t uncounted = piece.size();
        for (; uncounted > kChunkSize; uncounted -= kChunkSize) {
            count(std::int64_t{kChunkSize});
        }
        count(static_cast<std::int64_t>(uncounted));
    }
    return Copied::kWhole;
}

}  // namespace RMUP::Process
