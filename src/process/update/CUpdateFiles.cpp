#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <iterator>

#include "process/update/CUpdate.h"

namespace RMUP::Process {

namespace {

constexpr char kHeaderTag[] = "[CUpdate::GetFileHeaderInfoFromUSB]";

std::string Lowered(std::string text) {
    std::ranges::transform(text, text.begin(), [](unsigned char letter) { return std::tolower(letter); });
    return text;
}

}  // namespace

void CUpdate::DeleteRemainingFiles() {
    static constexpr char kTag[] = "[CUpdate::DeleteRemainingFiles]";
    for (const ImageInfo& image : images_) {
        if (unlink(image.RawPath.c_str()) != 0) {
            log_->WriteError("%s Remove %s file error: %s", kTag, image.RawPath.c_str(), strerror(errno));
        }
    }
}

int CUpdate::GetFileHeaderInfoFromUSB(ImageInfo& image, CFileSource& file) {
    UpdateHeader header;
    if (!ReadMagic(file, header.magic)) {
        log_->WriteError("%s read file error", kHeaderTag);
        return -1;
    }
    if (header.magic != image.Magic) {
        log_->WriteError("%s %s file's magic number(%s) compare failed", kHeaderTag, image.FilePath.c_str(),
                         header.magic.c_str());
        return -1;
    }
    const HeaderField missing = ReadHeaderAfterMagic(file, header);
    return TakeHeaderFromUSB(image, header, missing) ? 0 : -1;
}

bool CUpdate::TakeHeaderFromUSB(ImageInfo& image, const UpdateHeader& header, HeaderField missing) {
    const char* name = image.FilePath.c_str();
    if (missing == HeaderField::kSize) {
        log_->WriteError("%s read file error", kHeaderTag);
        return false;
    }
    log_->WriteInfo("%s (%s) Update File Size: %d", kHeaderTag, name, header.size);
    if (header.size < 0) {
        log_->WriteError("%s (%s) Update File Size is abnormal", kHeaderTag, name);
        return false;
    }
    image.FileSize = header.size;
    if (missing != HeaderField::kVersion) {
        image.SetNewVersion(header.version);
    }
    if (missing != HeaderField::kNone) {
        log_->WriteError("%s read file error", kHeaderTag);
        return false;
    }
    image.SetTail(header.tail);
    return true;
}

int CUpdate::GetPackageVersion(const ImageInfo& app, CFileSource& file) {
    static constexpr char kTag[] = "[CUpdate::GetPackageVersion]";
    package_ = {};
    const off_t position = file.Tell();
    if (position < 0) {
        log_->WriteError("%s ftell error: %s", kTag, strerror(errno));
        return -1;
    }
    if (!file.Seek(PackageBlockOffset(app.FileSize))) {
        log_->WriteError("%s file seek error: %s", kTag, strerror(errno));
        return -1;
    }
    const PackageBlock block = ReadPackageBlock(file);
    for (const ImageId image : Wire::kBlockImages) {
        if (!block.has[image]) {
            log_->WriteError("%s read %s version from file error", kTag, Lowered(Wire::RowOf(image).name).c_str());
        }
    }
    if (!file.Seek(position)) {
        log_->WriteError("%s file seek error: %s", kTag, strerror(errno));
        return -1;
    }

    const auto read = std::ranges::count(block.has, true);
    if (read == std::ssize(Wire::kBlockImages)) {
        package_ = block.versions;
        for (const ImageId image : Wire::kBlockImages) {
            log_->WriteInfo("%s package version [%s] : %s", kTag, Wire::RowOf(image).name,
                            package_[image].getVersion());
        }
        return 0;
    }
    if (read == 0) {
        log_->WriteInfo("%s It is old SW image (containing no package info)", kTag);
        return 0;
    }
    log_->WriteError("%s file seek error: %s", kTag, strerror(errno));
    return -1;
}

int CUpdate::CheckPackageVersion() {
    static constexpr char kTag[] = "[CUpdate::CheckPackageVersion]";
    const auto differs = [this](ImageId image) { return images_[image].GetNewVersion() != package_[image]; };
    if (std::ranges::any_of(Wire::kBlockImages, differs)) {
        log_->WriteError("%s package version is differ from USB files' version", kTag);
        return -1;
    }
    return 0;
}

int CUpdate::CompareVersion(Comparison comparison) {
    static constexpr char kTag[] = "[CUpdate::CompareVersion]";
    const bool strict = comparison == Comparison::kStrict;
    int count = 0;
    for (ImageInfo& image : images_) {
        if (!image.IsFile) {
            continue;
        }
        const Version installed = image.GetCurrentVersion();
        const Version offered = image.GetNewVersion();
        const bool wanted = IsToBeWritten(comparison, installed, offered);
        if (wanted) {
            image.NeedUpdate = true;
            ++count;
        }
        const char* const relation = wanted ? (strict ? "<" : "<=") : (strict ? ">=" : ">");
        log_->WriteInfo("%s %s: [OLD:%s] %s [NEW:%s]", kTag, image.Magic.c_str(), installed.getVersion(), relation,
                        offered.getVersion());
    }
    return count + CoupleRelease(images_);
}

}  // namespace RMUP::Process
