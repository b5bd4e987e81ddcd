#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <string_view>

#include "common/CTaggedLog.h"
#include "common/Shell.h"
#include "platform/upgrade.h"
#include "process/update/CPackageReader.h"
#include "process/update/CUpdate.h"
#include "process/update/CopyBytes.h"

namespace RMUP::Process {

namespace {

constexpr char kInfoTag[] = "[CUpdate::GetFileInfo]";
constexpr char kContentsTag[] = "[CUpdate::CopyContentsFromUSB]";

/// Answers of the device library.
constexpr int kNoStick = 1;
constexpr int kMountFailed = 1;

constexpr int kConnectionTries = 3;
constexpr int kFileRetries = 3;
constexpr int kReadRetries = 3;
constexpr unsigned kPauseSeconds = 1;

constexpr char kLogoOnStick[] = "/mnt/usb/zel_logo.n62v.bin";
constexpr char kLogo[] = "/tmp/zel_logo.n62v.bin";

}  // namespace

int CUpdate::MountUSB(bool mount, const char* mountPoint) {
    const CTaggedLog log(log_, "[CUpdate::MountUSB]");
    char point[256] = "";
    std::string_view(mountPoint).copy(point, sizeof(point) - 1);
    if (!mount) {
        usbMount(0, point);
        log.WriteInfo("USB unmounted");
        return 0;
    }
    log.WriteInfo("Try mount USB");
    for (int count = 1; checkUsbConnect() == kNoStick; ++count) {
        log.WriteInfo("USB isn't connected, retry count(%d)", count);
        sleep(kPauseSeconds);
        if (count == kConnectionTries) {
            log.WriteError("Cannot find USB connection");
            return -1;
        }
        log.WriteInfo("Try mount USB");
    }
    if (usbMount(1, point) == kMountFailed) {
        log.WriteError("USB mount failed");
        return -1;
    }
    log.WriteInfo("USB mount success");
    return 0;
}

int CUpdate::GetFileInfo() {
    const CTaggedLog log(log_, kInfoTag);
    int retries = 0;
    int count = 0;
    for (ImageInfo& image : images_) {
        // Parts of SYS are no files of their own.
        count += !image.Row.isPartOfSYS && ReadFileInfo(image, retries) ? 1 : 0;
    }
    const auto together =
        std::ranges::count_if(Wire::kReleaseImages, [this](ImageId image) { return images_[image].IsFile.load(); });
    if (together != 0 && together != std::ssize(Wire::kReleaseImages)) {
        log.WriteError("Sys & App & XML images must be together");
        return 0;
    }
    if (package_ != PackageVersions{} && CheckPackageVersion() != 0) {
        log.WriteError("USB file is differ from package version.");
        return -1;
    }
    return count;
}

bool CUpdate::ReadFileInfo(ImageInfo& image, int& retries) {
    const CTaggedLog log(log_, kInfoTag);
    for (;;) {
        CFileSource file(image.FilePath.c_str());
        if (!file.IsOpen()) {
            log.WriteInfo("%s file doesn't exist.", image.FilePath.c_str());
            return false;
        }
        if (GetFileHeaderInfoFromUSB(image, file) == 0 &&
            (image.Row.id != ImageId::kApp || GetPackageVersion(image, file) == 0)) {
            image.IsFile = true;
            log.WriteInfo("UPDATE FILE Info\n<Magic:%s><Ver:%s><Size:%d>", image.Magic.c_str(),
                          image.GetNewVersion().getVersion(), image.FileSize.load());
            return true;
        }
        if (retries >= kFileRetries) {
            return false;
        }
        ++retries;
        log.WriteInfo("Retry reading usb file(%d time(s)).", retries);
    }
}

int CUpdate::CopyContentsFromUSB() {
    for (ImageInfo& image : images_) {
        if (!image.NeedUpdate) {
            continue;
        }
        const bool package = image.Row.installation == Wire::Installation::kItsParts;
        if (!(package ? CopyPackageFromUSB(image) : CopyImageFromUSB(image))) {
            return -1;
        }
    }
    if (CFileSource(kLogoOnStick).IsOpen()) {
        // What somebody else put there would be written to, and a FIFO would never take the end of it.
        unlink(kLogo);
        RunShell("cp -f /mnt/usb/zel_logo.n62v.bin /tmp/");
    }
    return 0;
}

bool CUpdate::OpenData(const ImageInfo& image, CFileSource& source) {
    const CTaggedLog log(log_, kContentsTag);
    if (!source.IsOpen()) {
        log.WriteError("File(Type:%d) open error", image.Number());
        return false;
    }
    if (!source.Seek(kUpdateHeaderSize)) {
        log.WriteError("file seek error: %s", strerror(errno));
        return false;
    }
    return true;
}

bool CUpdate::CopyImageFromUSB(ImageInfo& image) {
    CFileSource source(image.FilePath.c_str());
    return OpenData(image, source) && CopyToFile(source, image);
}

bool CUpdate::CopyPackageFromUSB(const ImageInfo& package) {
    CFileSource source(package.FilePath.c_str());
    if (!OpenData(package, source)) {
        return false;
    }
    CPackageReader reader(source, images_);
    while (!reader.IsComplete()) {
        if (!CopySectionFromUSB(source, reader)) {
            return false;
        }
    }
    return true;
}

bool CUpdate::CopySectionFromUSB(CFileSource& source, CPackageReader& reader) {
    const CTaggedLog log(log_, kContentsTag);
    const auto section = reader.ReadMagic();
    if (section == CPackageReader::Section::kCut) {
        log.WriteError("file read error");
        return false;
    }
    if (section != CPackageReader::Section::kPart) {
        log.WriteError("Not correct file");
        return false;
    }
    ImageInfo& image = reader.Image();
    const HeaderField missing = reader.ReadHeader();
    if (!TakeHeaderFromUSB(image, reader.Header(), missing)) {
        return false;
    }
    log.WriteInfo("SYS Subfile Info\n<Magic:%s><Ver:%s><Size:%d>", image.Magic.c_str(),
                  image.GetNewVersion().getVersion(), image.FileSize.load());
    if (!CopyToFile(source, image)) {
        return false;
    }
    image.IsFile = true;
    image.NeedUpdate = true;
    image.InPackage = true;
    return true;
}

bool CUpdate::CopyToFile(CFileSource& source, ImageInfo& image) {
    const CTaggedLog log(log_, kContentsTag);
    COutputFile file(image.RawPath.c_str());
    if (!file.IsOpen()) {
        log.WriteError("New file open error");
        return false;
    }
    if (CopyFile(source, file, image) != 0) {
        log.WriteError("Update file copy error");
        return false;
    }
    log.WriteInfo("%s file copy complete", image.RawPath.c_str());
    return true;
}

int CUpdate::CopyFile(CFileSource& source, COutputFile& destination, ImageInfo& image) {
    const CTaggedLog log(log_, "[CUpdate::CopyFile]");
    log.WriteInfo("Copy file[%d] start", image.Number());
    const auto count = [&](std::int64_t bytes) {
        Count(images_, image, &ImageInfo::Download, bytes);
        SendUDSUpdateStatus();
    };
    auto left = static_cast<std::size_t>(image.FileSize);
    Copied copied = CopyBytes(source, destination, left, count);
    for (int retries = 1; copied == Copied::kNotRead; ++retries) {
        if (retries > kReadRetries) {
            log.WriteError("%d retry, but file read error occured", retries);
            return -1;
        }
        sleep(kPauseSeconds);
        copied = CopyBytes(source, destination, left, count);
    }
    if (copied == Copied::kWhole) {
        CountHeader(images_, image, &ImageInfo::Download);
    }
    if (copied == Copied::kNotWritten || !destination.Close()) {
        log.WriteError("file write error: %s", strerror(errno));
        return -1;
    }
    return 0;
}

}  // namespace RMUP::Process
