#include "process/update/XmlArchive.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "wire/Bytes.h"

namespace RMUP::Process {

namespace {

using Span = std::span<const std::uint8_t>;

/// The record at an archive's end, which says where the list of entries stands, and how far from the end it may be: a
/// comment can follow it.
constexpr std::string_view kEnd = "PK\5\6";
constexpr std::size_t kEndSize = 22;
constexpr off_t kEndReach = 66000;

/// Stands right before that record when another one, for large archives, counts instead.
constexpr std::string_view kLargeEnd = "PK\6\7";
constexpr std::size_t kLargeEndSize = 20;

/// An entry of the list: a fixed part, and the texts whose lengths it gives.
constexpr std::string_view kEntry = "PK\1\2";
constexpr std::size_t kEntrySize = 46;

/// An extra field that gives an entry's mode where the fixed part has none.
constexpr std::uint16_t kModeField = 0x756E;
constexpr std::size_t kFieldHead = 4;

std::string_view Text(Span bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// Where the list of entries stands in the file, and how many there are.
struct EntryList {
    std::int64_t begin = 0;
    std::int64_t end = 0;
    unsigned count = 0;
};

/// Whether the end record, which stands at `position` of the file, describes one plain list that ends right before it.
bool ParseEnd(Span record, std::int64_t position, EntryList& list) {
    const bool oneDisk = Bytes::GetLE32(record, 4) == 0 && Bytes::GetLE16(record, 8) == Bytes::GetLE16(record, 10);
    list.count = Bytes::GetLE16(record, 10);
    list.begin = Bytes::GetLE32(record, 16);
    list.end = list.begin + Bytes::GetLE32(record, 12);
    return oneDisk && list.end == position;
}

bool IsPathInside(std::string_view path) {
    std::string wrapped = "/" + std::string(path) + "/";
    std::ranges::replace(wrapped, '\\', '/');
    return !wrapped.starts_with("//") && wrapped.find("/../") == std::string::npos &&
           wrapped.find('\0') == std::string::npos;
}

bool HasModeField(Span extra) {
    while (extra.size() >= kFieldHead) {
        if (Bytes::GetLE16(extra, 0) == kModeField) {
            return true;
        }
        extra = extra.subspan(std::min(extra.size(), kFieldHead + Bytes::GetLE16(extra, 2)));
    }
    return false;
}

/// Reads one entry. False when it is none or is not to be unpacked.
bool IsHarmlessEntry(CFileSource& archive) {
    std::array<std::uint8_t, kEntrySize> entry{};
    if (!archive.Read(entry) || !Text(entry).starts_with(kEntry)) {
        return false;
    }
    std::vector<std::uint8_t> path(Bytes::GetLE16(entry, 28));
    std::vector<std::uint8_t> extra(Bytes::GetLE16(entry, 30));
    if (!archive.Read(path) || !archive.Read(extra) || !archive.Skip(Bytes::GetLE16(entry, 32))) {
        return false;
    }
    // Not every packer writes the kind of the file; where there is none it is a regular one.
    const mode_t mode = Bytes::GetLE32(entry, 38) >> 16;
    const bool plain = (mode & S_IFMT) == 0 || S_ISREG(mode) || S_ISDIR(mode);
    return plain && IsPathInside(Text(path)) && !HasModeField(extra);
}

}  // namespace

bool MayBeUnpacked(CFileSource& archive) {
    const off_t size = archive.Size();
    if (size < 0) {
        return false;
    }
    const off_t start = std::max<off_t>(0, size - kEndReach);
    std::vector<std::uint8_t> tail(static_cast<std::size_t>(size - start));
    if (!archive.Seek(start) || !archive.Read(tail)) {
        return false;
    }
    const std::size_t found =
        tail.size() < kEndSize ? std::string_view::npos : Text(tail).rfind(kEnd, tail.size() - kEndSize);
    if (found == std::string_view::npos) {
        return true;
    }
    EntryList list;
    const bool large = found >= kLargeEndSize && Text(tail).substr(found - kLargeEndSize).starts_with(kLargeEnd);
    if (large || !ParseEnd(Span(tail).subspan(found), start + static_cast<std::int64_t>(found), list) ||
        !archive.Seek(static_cast<off_t>(list.begin))) {
        return false;
    }
    for (unsigned i = 0; i < list.count; ++i) {
        if (!IsHarmlessEntry(archive)) {
            return false;
        }
    }
    return archive.Tell() == list.end;
}

}  // namespace RMUP::Process
