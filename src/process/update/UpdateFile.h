#pragma once

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

struct UpdateHeader {
    std::string magic;
    std::int32_t size = 0;
    QENFx::Common::Version version;
    HeaderTail tail{};
};

/// The header in memory.
[[nodiscard]] UpdateHeader ParseUpdateHeader(std::span<const std::uint8_t, kUpdateHeaderSize> bytes);

/// A field of the header, by which a failed read is told.
enum class HeaderField { kNone, kSize, kVersion, kTail };

/// Reads the magic alone, so that a foreign file is refused before more of it is waited for.
[[nodiscard]] bool ReadMagic(CByteSource& source, std::string& magic);

/// Reads what follows the magic. Returns the first field that did not come; the fields before it are filled.
[[nodiscard]] HeaderField ReadHeaderAfterMagic(CByteSource& source, UpdateHeader& header);

/// How many images are to be written.
[[nodiscard]] int CountMarks(const ImageInfos& images);

/// Takes over what a header says of the image that follows it.
void TakeHeader(ImageInfo& image, const UpdateHeader& header);

/// The image of a magic, null when there is none.
[[nodiscard]] ImageInfo* FindImage(ImageInfos& images, const std::string& magic);

/// The first marked image that is not at hand whole, null when there is none. SYS is whole when it has brought its four
/// parts and nothing else. Nothing may be written before this is so for every mark.
[[nodiscard]] const ImageInfo* FindIncomplete(const ImageInfos& images);

/// The versions of the images of one release, kept in the APP file; those of other images are 0.00.00.0000.
using PackageVersions = Wire::CImageTable<QENFx::Common::Version>;

/// What could be read of them.
struct PackageBlock {
    PackageVersions versions;
    Wire::CImageTable<bool> has;
};

/// Reads the version texts; each is tried whatever became of the one before.
[[nodiscard]] PackageBlock ReadPackageBlock(CByteSource& source);

/// How the installed and the offered version of an image must stand for the image to be written.
enum class Comparison { kStrict, kInclusive };

[[nodiscard]] bool IsToBeWritten(Comparison comparison, const QENFx::Common::Version& installed,
                                 const QENFx::Common::Version& offered);

/// The images of one release are written together: marks SYS, APP and XML when one of them is marked. Returns what that
/// adds to a count of marks, which is 2 however many of the three were marked before.
int CoupleRelease(ImageInfos& images);

/// Adds to an image's bytes received or written, which one thread counts at a time. The sum of a package's sections may
/// be more than the field holds; it stays at the most then.
void AddBytes(std::atomic<std::int32_t>& counter, std::int64_t bytes);

using ByteCounter = std::atomic<std::int32_t> ImageInfo::*;

/// Adds to a counter of an image; what is added to a part of SYS is added to SYS as well.
void Count(ImageInfos& images, ImageInfo& image, ByteCounter counter, std::int64_t bytes);

/// Counts the header of a section, which is SYS's and not the part's. For an image that is no part nothing happens.
void CountHeader(ImageInfos& images, const ImageInfo& image, ByteCounter counter);

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
