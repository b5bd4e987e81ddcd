#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <iterator>

#include "common/CTaggedLog.h"
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
    const CTaggedLog log(log_, "[CUpdate::DeleteRemainingFiles]");
    for (const ImageInfo& image : images_) {
        if (unlink(image.RawPath.c_str()) != 0) {
            log.WriteError("Remove %s file error: %s", image.RawPath.c_str(), strerror(errno));
        }
    }
}

int CUpdate::GetFileHeaderInfoFromUSB(ImageInfo& image, CFileSource& file) {
    const CTaggedLog log(log_, kHeaderTag);
    UpdateHeader header;
    if (!ReadMagic(file, header.magic)) {
        log.WriteError("read file error");
        return -1;
    }
    if (header.magic != image.Magic) {
        log.WriteError("%s file's magic number(%s) compare failed", image.FilePath.c_str(), header.magic.c_str());
        return -1;
    }
    const HeaderField missing = ReadHeaderAfterMagic(file, header);
    return TakeHeaderFromUSB(image, header, missing) ? 0 : -1;
}

bool CUpdate::TakeHeaderFromUSB(ImageInfo& image, const UpdateHeader& header, HeaderField missing) {
    const CTaggedLog log(log_, kHeaderTag);
    const char* name = image.FilePath.c_str();
    if (missing == HeaderField::kSize) {
        log.WriteError("read file error");
        return false;
    }
    log.WriteInfo("(%s) Update File Size: %d", name, header.size);
    if (header.size < 0) {
        log.WriteError("(%s) Update File Size is abnormal", name);
        return false;
    }
    image.FileSize = header.size;
    if (missing != HeaderField::kVersion) {
        image.SetNewVersion(header.version);
    }
    if (missing != HeaderField::kNone) {
        log.WriteError("read file error");
        return false;
    }
    image.SetTail(header.tail);
    return true;
}

int CUpdate::GetPackageVersion(const ImageInfo& app, CFileSource& file) {
    const CTaggedLog log(log_, "[CUpdate::GetPackageVersion]");
    package_ = {};
    const off_t position = file.Tell();
    if (position < 0) {
        log.WriteError("ftell error: %s", strerror(errno));
        return -1;
    }
    if (!file.Seek(PackageBlockOffset(app.FileSize))) {
        log.WriteError("file seek error: %s", strerror(errno));
        return -1;
    }
    const PackageBlock block = ReadPackageBlock(file);
    for (const ImageId image : Wire::kBlockImages) {
        if (!block.has[image]) {
            log.WriteError("read %s version from file error", Lowered(Wire::RowOf(image).name).c_str());
        }
    }
    if (!file.Seek(position)) {
        log.WriteError("file seek error: %s", strerror(errno));
        return -1;
    }

    const auto read = std::ranges::count(block.has, true);
    if (read == std::ssize(Wire::kBlockImages)) {
        package_ = block.versions;
        for (const ImageId image : Wire::kBlockImages) {
            log.WriteInfo("package version [%s] : %s", Wire::RowOf(image).name, package_[image].getVersion());
        }
        return 0;
    }
    if (read == 0) {
        log.WriteInfo("It is old SW image (containing no package info)");
        return 0;
    }
    log.WriteError("file seek error: %s", strerror(errno));
    return -1;
}

int CUpdate::CheckPackageVersion() {
    const CTaggedLog log(log_, "[CUpdate::CheckPackageVersion]");
    const auto differs = [this](ImageId image) { return images_[image].GetNewVersion() != package_[image]; };
    if (std::ranges::any_of(Wire::kBlockImages, differs)) {
        log.WriteError("package version is differ from USB files' version");
        return -1;
    }
    return 0;
}

int CUpdate::CompareVersion(Comparison comparison) {
    const CTaggedLog log(log_, "[CUpdate::CompareVersion]");
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
        log.WriteInfo("%s: [OLD:%s] %s [NEW:%s]", image.Magic.c_str(), installed.getVersion(), relation,
                      offered.getVersion());
    }
    return count + CoupleRelease(images_);
}

}  // namespace RMUP::Process
