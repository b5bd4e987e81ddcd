#include "process/update/UpdateFile.h"

#include <algorithm>
#include <limits>
#include <string_view>
#include <utility>

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
    for (const int part : kSYSParts) {
        const ImageInfo& image = images[static_cast<std::size_t>(part)];
        if (!image.InPackage || !IsWhole(image)) {
            return false;
        }
        size += std::int64_t{image.FileSize} + kUpdateHeaderSize;
    }
    return size == images[kSYSImage].FileSize;
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

int FindImage(const ImageInfos& images, const std::string& magic) {
    const auto found = std::ranges::find(images, magic, &ImageInfo::Magic);
    return found == images.end() ? -1 : static_cast<int>(found - images.begin());
}

int CPackageSections::Take(const ImageInfos& images, const std::string& magic) {
    const int image = FindImage(images, magic);
    return IsPartOfSYS(image) && !std::exchange(come_[static_cast<std::size_t>(image)], true) ? image : -1;
}

bool CPackageSections::AreComplete() const {
    return std::ranges::all_of(kSYSParts, [this](int image) { return come_[static_cast<std::size_t>(image)]; });
}

int FindIncomplete(const ImageInfos& images) {
    for (int i = 0; i < kImageCount; ++i) {
        const ImageInfo& image = images[static_cast<std::size_t>(i)];
        const bool whole = IsWhole(image) && (i != kSYSImage || IsPackageWhole(images));
        if (image.NeedUpdate && !whole) {
            return i;
        }
    }
    return -1;
}

PackageBlock ReadPackageBlock(CByteSource& source) {
    PackageBlock block;
    block.hasApp = ReadVersion(source, block.versions.app);
    block.hasSys = ReadVersion(source, block.versions.sys);
    block.hasXml = ReadVersion(source, block.versions.xml);
    return block;
}

bool IsToBeWritten(Comparison comparison, const Version& installed, const Version& offered) {
    return comparison == Comparison::kStrict ? installed < offered : installed <= offered;
}

int CoupleRelease(ImageInfos& images) {
    const auto record = [&images](int image) -> ImageInfo& { return images[static_cast<std::size_t>(image)]; };
    if (std::ranges::none_of(kReleaseImages, [&](int image) { return record(image).NeedUpdate.load(); })) {
        return 0;
    }
    for (const int image : kReleaseImages) {
        record(image).NeedUpdate = true;
    }
    return 2;
}

void AddBytes(std::atomic<std::int32_t>& counter, std::int64_t bytes) {
    constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
    counter = static_cast<std::int32_t>(std::min(counter + bytes, kMost));
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
    std::array<int, kReportedImages.size()> values{};
    bool rose = false;
    for (std::size_t i = 0; i < values.size(); ++i) {
        const ImageInfo& image = images[static_cast<std::size_t>(kReportedImages[i])];
        const int value = image.NeedUpdate ? ProgressOf(image.Download, image.Written, image.FileSize) : 0;
        rose = rose || value > image.Progress;
        values[i] = std::max<int>(value, image.Progress);
    }
    if (rose) {
        for (std::size_t i = 0; i < values.size(); ++i) {
            images[static_cast<std::size_t>(kReportedImages[i])].Progress = values[i];
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
