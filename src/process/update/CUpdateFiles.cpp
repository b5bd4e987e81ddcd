#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "process/update/CUpdate.h"

namespace RMUP::Process {

void CUpdate::DeleteRemainingFiles(Images& images) {
    static constexpr char kTag[] = "[CUpdate::DeleteRemainingFiles]";
    for (const ImageInfo& image : images) {
        if (unlink(image.RawPath.c_str()) != 0) {
            log_->WriteError("%s Remove %s file error: %s", kTag, image.RawPath.c_str(), strerror(errno));
        }
    }
}

int CUpdate::GetFileHeaderInfoFromUSB(int index, CFileSource& file, Images& images) {
    static constexpr char kTag[] = "[CUpdate::GetFileHeaderInfoFromUSB]";
    ImageInfo& image = images[static_cast<std::size_t>(index)];
    const char* name = image.FilePath.c_str();
    UpdateHeader header;
    if (!ReadMagic(file, header.magic)) {
        log_->WriteError("%s read file error", kTag);
        return -1;
    }
    if (header.magic != image.Magic) {
        log_->WriteError("%s %s file's magic number(%s) compare failed", kTag, name, header.magic.c_str());
        return -1;
    }
    const HeaderField missing = ReadHeaderAfterMagic(file, header);
    if (missing == HeaderField::kSize) {
        log_->WriteError("%s read file error", kTag);
        return -1;
    }
    log_->WriteInfo("%s (%s) Update File Size: %d", kTag, name, header.size);
    if (header.size < 0) {
        log_->WriteError("%s (%s) Update File Size is abnormal", kTag, name);
        return -1;
    }
    image.FileSize = header.size;
    if (missing != HeaderField::kVersion) {
        device_->SetNewVersion(index, header.version);
    }
    if (missing != HeaderField::kNone) {
        log_->WriteError("%s read file error", kTag);
        return -1;
    }
    device_->SetHeaderTail(index, header.tail);
    return 0;
}

int CUpdate::GetPackageVersion(CFileSource& file, Images& images) {
    static constexpr char kTag[] = "[CUpdate::GetPackageVersion]";
    package_ = {};
    const off_t position = file.Tell();
    if (position < 0) {
        log_->WriteError("%s ftell error: %s", kTag, strerror(errno));
        return -1;
    }
    if (!file.Seek(PackageBlockOffset(images[kAppImage].FileSize))) {
        log_->WriteError("%s file seek error: %s", kTag, strerror(errno));
        return -1;
    }
    const PackageBlock block = ReadPackageBlock(file);
    if (!block.hasApp) {
        log_->WriteError("%s read app version from file error", kTag);
    }
    if (!block.hasSys) {
        log_->WriteError("%s read sys version from file error", kTag);
    }
    if (!block.hasXml) {
        log_->WriteError("%s read xml version from file error", kTag);
    }
    if (!file.Seek(position)) {
        log_->WriteError("%s file seek error: %s", kTag, strerror(errno));
        return -1;
    }

    if (block.hasApp && block.hasSys && block.hasXml) {
        package_ = block.versions;
        log_->WriteInfo("%s package version [APP] : %s", kTag, package_.app.getVersion());
        log_->WriteInfo("%s package version [SYS] : %s", kTag, package_.sys.getVersion());
        log_->WriteInfo("%s package version [XML] : %s", kTag, package_.xml.getVersion());
        return 0;
    }
    if (!block.hasApp && !block.hasSys && !block.hasXml) {
        log_->WriteInfo("%s It is old SW image (containing no package info)", kTag);
        return 0;
    }
    log_->WriteError("%s file seek error: %s", kTag, strerror(errno));
    return -1;
}

int CUpdate::CheckPackageVersion() {
    static constexpr char kTag[] = "[CUpdate::CheckPackageVersion]";
    if (device_->GetNewVersion(kAppImage) != package_.app || device_->GetNewVersion(kSYSImage) != package_.sys ||
        device_->GetNewVersion(kXMLImage) != package_.xml) {
        log_->WriteError("%s package version is differ from USB files' version", kTag);
        return -1;
    }
    return 0;
}

int CUpdate::CompareVersion(Images& images, Comparison comparison) {
    static constexpr char kTag[] = "[CUpdate::CompareVersion]";
    const bool strict = comparison == Comparison::kStrict;
    int count = 0;
    for (int i = 0; i < kImageCount; ++i) {
        ImageInfo& image = images[static_cast<std::size_t>(i)];
        if (!image.IsFile) {
            continue;
        }
        const Version installed = device_->GetCurrentVersion(i);
        const Version offered = device_->GetNewVersion(i);
        const std::string oldText = installed.getVersion();
        const std::string newText = offered.getVersion();
        const char* magic = image.Magic.c_str();
        if (IsToBeWritten(comparison, installed, offered)) {
            image.NeedUpdate = true;
            ++count;
            if (strict) {
                log_->WriteInfo("%s %s: [OLD:%s] < [NEW:%s]", kTag, magic, oldText.c_str(), newText.c_str());
            } else {
                log_->WriteInfo("%s %s: [OLD:%s] <= [NEW:%s]", kTag, magic, oldText.c_str(), newText.c_str());
            }
        } else if (strict) {
            log_->WriteInfo("%s %s: [OLD:%s] >= [NEW:%s]", kTag, magic, oldText.c_str(), newText.c_str());
        } else {
            log_->WriteInfo("%s %s: [OLD:%s] > [NEW:%s]", kTag, magic, oldText.c_str(), newText.c_str());
        }
    }
    return count + CoupleRelease(images);
}

}  // namespace RMUP::Process
