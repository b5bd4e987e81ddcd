#include "process/update/UpdateFile.h"

#include <algorithm>
#include <limits>
#include <string_view>

#include "wire/Bytes.h"

using QENFx::Common::Version;

namespace RMUP::Process {

namespace {

constexpr double kComplete = 100;

bool ReadVersion(CByteSource& source, Version& version) {
    std::array<std::uint8_t, kVersionSize> field{};
    if (!source.Read(field)) {
        return false;
    }
    version = ParseVersionField(field);
    return true;
}

bool IsWhole(const ImageInfo& image) {
    return image.FileSize > 0 && image.Download == image.FileSize;
}

bool IsPackageWhole(const ImageInfos& images) {
    std::int64_t size = 0;
    for (const ImageId part : Wire::kSYSParts) {
        const ImageInfo& image = images[part];
        if (!image.InPackage || !IsWhole(image)) {
            return false;
        }
        size += std::int64_t{image.FileSize} + kUpdateHeaderSize;
    }
    return size == images[ImageId::kSYS].FileSize;
}

}  // namespace

UpdateHeader ParseUpdateHeader(std::span<const std::uint8_t, kUpdateHeaderSize> bytes) {
    const Wire::UpdateHeaderFields fields = Wire::ParseUpdateHeader(bytes);
    return {fields.magic, fields.size, Version(fields.version.c_str()), fields.tail};
}

bool ReadMagic(CByteSource& source, std::string& magic) {
    std::array<std::uint8_t, kMagicSize> field{};
    if (!source.Read(field)) {
        return false;
    }
    magic = Wire::FieldText(field);
    return true;
}

HeaderField ReadHeaderAfterMagic(CByteSource& source, UpdateHeader& header) {
    std::array<std::uint8_t, 4> size{};
    if (!source.Read(size)) {
        return HeaderField::kSize;
    }
    header.size = static_cast<std::int32_t>(Bytes::GetLE32(size, 0));
    if (!ReadVersion(source, header.version)) {
        return HeaderField::kVersion;
    }
    if (!source.Read(header.tail)) {
        return HeaderField::kTail;
    }
    return HeaderField::kNone;
}

int CountMarks(const ImageInfos& images) {
    return static_cast<int>(
        std::ranges::count_if(images, [](const ImageInfo& image) { return image.NeedUpdate.load(); }));
}

void TakeHeader(ImageInfo& image, const UpdateHeader& header) {
    image.FileSize = header.size;
    image.SetNewVersion(header.version);
    image.SetTail(header.tail);
}

ImageInfo* FindImage(ImageInfos& images, const std::string& magic) {
    const auto found = std::ranges::find(images, magic, &ImageInfo::Magic);
    return found == images.end() ? nullptr : &*found;
}

const ImageInfo* FindIncomplete(const ImageInfos& images) {
    const auto incomplete = std::ranges::find_if(images, [&](const ImageInfo& image) {
        const bool package = image.Row.installation == Wire::Installation::kItsParts;
        return image.NeedUpdate && !(IsWhole(image) && (!package || IsPackageWhole(images)));
    });
    return incomplete == images.end() ? nullptr : &*incomplete;
}

PackageBlock ReadPackageBlock(CByteSource& source) {
    PackageBlock block;
    for (const ImageId image : Wire::kBlockImages) {
        block.has[image] = ReadVersion(source, block.versions[image]);
    }
    return block;
}

bool IsToBeWritten(Comparison comparison, const Version& installed, const Version& offered) {
    return comparison == Comparison::kStrict ? installed < offered : installed <= offered;
}

int CoupleRelease(ImageInfos& images) {
    if (std::ranges::none_of(Wire::kReleaseImages, [&](ImageId image) { return images[image].NeedUpdate.load(); })) {
        return 0;
    }
    for (const ImageId image : Wire::kReleaseImages) {
        images[image].NeedUpdate = true;
    }
    return 2;
}

void AddBytes(std::atomic<std::int32_t>& counter, std::int64_t bytes) {
    constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
    counter = static_cast<std::int32_t>(std::min(counter + bytes, kMost));
}

void Count(ImageInfos& images, ImageInfo& image, ByteCounter counter, std::int64_t bytes) {
    AddBytes(image.*counter, bytes);
    if (image.Row.isPartOfSYS) {
        AddBytes(images[ImageId::kSYS].*counter, bytes);
    }
}

void CountHeader(ImageInfos& images, const ImageInfo& image, ByteCounter counter) {
    if (image.Row.isPartOfSYS) {
        AddBytes(images[ImageId::kSYS].*counter, kUpdateHeaderSize);
    }
}

int ProgressOf(std::int32_t received, std::int32_t written, std::int32_t size) {
    if (size <= 0) {
        return 0;
    }
    const double progress =
        static_cast<double>(received) * 100 / size / 5 + static_cast<double>(written) * 100 / size * 4 / 5;
    // A package whose size is not that of its sections counts beyond its own end.
    return static_cast<int>(std::clamp(progress, 0.0, kComplete));
}

bool RaiseProgress(ImageInfos& images) {
    Wire::CImageTable<int> values;
    bool rose = false;
    for (const ImageId reported : Wire::kReportedImages) {
        const ImageInfo& image = images[reported];
        const int value = image.NeedUpdate ? ProgressOf(image.Download, image.Written, image.FileSize) : 0;
        rose = rose || value > image.Progress;
        values[reported] = std::max<int>(value, image.Progress);
    }
    if (rose) {
        for (const ImageId reported : Wire::kReportedImages) {
            images[reported].Progress = values[reported];
        }
    }
    return rose;
}

std::array<std::uint8_t, kVersionSize> VersionField(const Version& version) {
    std::array<std::uint8_t, kVersionSize> field{};
    const std::string text = version.getVersion();
    std::copy_n(text.begin(), std::min(text.size(), field.size()), field.begin());
    return field;
}

Version ParseVersionField(std::span<const std::uint8_t> field) {
    return Version(Wire::FieldText(field).c_str());
}

}  // namespace RMUP::Process
