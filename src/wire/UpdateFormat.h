#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

/// The format of update files.
///
/// An update file is a header and the image's data. The header, little-endian:
///
///      0  magic     4 characters
///      4  size      4 bytes, signed: the bytes of image data that follow the header
///      8  version   16 bytes, a text padded with NUL
///     24  tail      16 bytes, kept as they are
///
/// The data of a SYS file is a package: four sections, each again a header and data. The magic of a section says which
/// image it is; their order is free.
namespace Wire {

inline constexpr std::size_t kMagicSize = 4;
inline constexpr std::size_t kVersionSize = 16;
inline constexpr int kUpdateHeaderSize = 40;
inline constexpr int kSYSSectionCount = 4;

/// The last 16 bytes of an update file's header, kept as they came.
using HeaderTail = std::array<std::uint8_t, 16>;

/// The header as it stands in the file; the texts end at their first NUL or with their field.
struct UpdateHeaderFields {
    std::string magic;
    std::int32_t size = 0;
    std::string version;
    HeaderTail tail{};
};

[[nodiscard]] UpdateHeaderFields ParseUpdateHeader(std::span<const std::uint8_t, kUpdateHeaderSize> bytes);

/// Where the versions of the three images of one release stand in an APP file, from the file's start, for the size in
/// that file's header: APP, SYS and XML, each a text in a field of kVersionSize bytes.
constexpr std::int32_t PackageBlockOffset(std::int32_t size) {
    return size - 40;
}

/// The text in a field of fixed size: up to its first NUL, or all of it.
[[nodiscard]] std::string FieldText(std::span<const std::uint8_t> field);

}  // namespace Wire
