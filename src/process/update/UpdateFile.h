#pragma once

#include <algorithm>
#include <array>
#include <atomic>
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

/// The images that come inside a SYS package, and so only with a switch to the partition that they are written to.
inline constexpr std::array<int, kSYSSectionCount> kSYSParts = {kBootImage, kKernelImage, kRootFSImage, kQTEImage};

constexpr bool IsPartOfSYS(int image) {
    return std::ranges::find(kSYSParts, image) != kSYSParts.end();
}

/// The images of one release. They are written together, and only they are taken from the update server.
inline constexpr std::array<int, 3> kReleaseImages = {kAppImage, kXMLImage, kSYSImage};

constexpr bool IsOfRelease(int image) {
    return std::ranges::find(kReleaseImages, image) != kReleaseImages.end();
}

/// Which sections of a SYS package have come. One object for one reading of a package. In the place of one of its parts
/// nothing else may come: the partition that the package is written to would be left without that part.
class CPackageSections {
public:
    /// The image of the next section; -1 when the section is none of the four, or one of them that has come before.
    [[nodiscard]] int Take(const ImageInfos& images, const std::string& magic);

    /// Whether all four have come.
    [[nodiscard]] bool AreComplete() const;

private:
    std::array<bool, kImageCount> come_{};
};

/// The first marked image that is not at hand whole, -1 when there is none. SYS is whole when it has brought its four
/// parts and nothing else. Nothing may be written before this is so for every mark.
[[nodiscard]] int FindIncomplete(const ImageInfos& images);

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

/// The images whose progress is reported, in the order of the report.
inline constexpr std::array<int, 4> kReportedImages = {kAppImage, kDSPImage, kXMLImage, kSYSImage};

/// Adds to an image's bytes received or written, which one thread counts at a time. The sum of a package's sections may
/// be more than the field holds; it stays at the most then.
void AddBytes(std::atomic<std::int32_t>& counter, std::int64_t bytes);

/// Percent of an image's update: receiving is one fifth of it, writing four fifths. 0 for an image without size.
[[nodiscard]] int ProgressOf(std::int32_t received, std::int32_t written, std::int32_t size);

/// Takes the progress of the reported images into their records. Returns whether one of them rose; otherwise nothing
/// changes. No recorded progress ever falls.
[[nodiscard]] bool RaiseProgress(ImageInfos& images);

/// Puts a version's text into a field of the PC's, ZELApp's and the device library's making: 16 bytes, padded
/// with NUL; a text of 16 characters or more fills it.
[[nodiscard]] std::array<std::uint8_t, kVersionSize> VersionField(const QENFx::Common::Version& version);

/// The version in such a field. What is not a version reads as 0.00.00.0000.
[[nodiscard]] QENFx::Common::Version ParseVersionField(std::span<const std::uint8_t> field);

}  // namespace RMUP::Process
