#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "config/ImageInfo.h"
#include "platform/Text.h"
#include "process/update/CByteSource.h"
#include "wire/UpdateFormat.h"

/// The rules on update files, apart from where the bytes come from and who is told. Their format: wire/UpdateFormat.h.
namespace RMUP::Process {

using Wire::kMagicSize;
using Wire::kSYSSectionCount;
using Wire::kUpdateHeaderSize;
using Wire::kVersionSize;
using Wire::PackageBlockOffset;

/// What is copied is counted in pieces of this size, and progress looked at after each.
inline constexpr std::size_t kChunkSize = 4096;

/// Counts a copied piece, which may be of any size, chunk by chunk.
template <typename Count>
void ForEachChunk(std::size_t size, Count count) {
    for (; size > kChunkSize; size -= kChunkSize) {
        count(static_cast<std::int32_t>(kChunkSize));
    }
    count(static_cast<std::int32_t>(size));
}

struct UpdateHeader {
    std::string magic;
    std::int32_t size = 0;
    QENFx::Common::Version version;
    HeaderTail tail{};
};

/// The header in memory.
[[nodiscard]] UpdateHeader ParseUpdateHeader(std::span<const std::uint8_t, kUpdateHeaderSize> bytes);

/// A field of the header, by which a failed read is told.
enum class HeaderField { kNone, kMagic, kSize, kVersion, kTail };

/// Reads the magic alone, so that a foreign file is refused before more of it is waited for.
[[nodiscard]] bool ReadMagic(CByteSource& source, std::string& magic);

/// Reads what follows the magic. Returns the first field that did not come; the fields before it are filled.
[[nodiscard]] HeaderField ReadHeaderAfterMagic(CByteSource& source, UpdateHeader& header);

/// The catalogue image of a magic, -1 when there is none. The first match wins.
[[nodiscard]] int FindImage(const ImageInfos& images, const std::string& magic);

/// What a section of a SYS package may be: -1 for a magic outside the catalogue, and for that of SYS itself, which
/// would overwrite the package that is being read.
[[nodiscard]] int FindSectionImage(const ImageInfos& images, const std::string& magic);

/// The versions of the three images of one release, kept in the APP file.
struct PackageVersions {
    QENFx::Common::Version app;
    QENFx::Common::Version sys;
    QENFx::Common::Version xml;

    bool operator==(const PackageVersions&) const = default;
};

struct PackageBlock {
    PackageVersions versions;
    bool hasApp = false;
    bool hasSys = false;
    bool hasXml = false;
};

/// Reads the three version texts; each is tried whatever became of the one before.
[[nodiscard]] PackageBlock ReadPackageBlock(CByteSource& source);

/// How the installed and the offered version of an image must stand for the image to be written.
enum class Comparison { kStrict, kInclusive };

[[nodiscard]] bool IsToBeWritten(Comparison comparison, const QENFx::Common::Version& installed,
                                 const QENFx::Common::Version& offered);

/// The images of one release are written together: marks SYS, APP and XML when one of them is marked. Returns what that
/// adds to a count of marks, which is 2 however many of the three were marked before.
int CoupleRelease(ImageInfos& images);

/// Whether the image usually comes inside a SYS package, so that its bytes count for SYS as well.
constexpr bool IsPartOfSYS(int image) {
    return image == kBootImage || image == kKernelImage || image == kRootFSImage || image == kQTEImage;
}

/// The images whose progress is reported, in the order of the report.
inline constexpr std::array<int, 4> kReportedImages = {kAppImage, kDSPImage, kXMLImage, kSYSImage};

/// Percent of an image's update: receiving is one fifth of it, writing four fifths. 0 for an image without size.
[[nodiscard]] int ProgressOf(std::int32_t received, std::int32_t written, std::int32_t size);

/// Takes the progress of the reported images into their records. Returns whether one of them rose; otherwise nothing
/// changes. No recorded progress ever falls.
[[nodiscard]] bool RaiseProgress(ImageInfos& images);

/// Puts a version's text into a field of the PC's, ZELApp's and the device library's making: 16 bytes, padded with NUL.
[[nodiscard]] std::array<std::uint8_t, kVersionSize> VersionField(const QENFx::Common::Version& version);

/// The version in such a field. What is not a version reads as 0.00.00.0000.
[[nodiscard]] QENFx::Common::Version ParseVersionField(std::span<const std::uint8_t> field);

}  // namespace RMUP::Process
