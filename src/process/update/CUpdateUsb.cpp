#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "common/Shell.h"
#include "platform/upgrade.h"
#include "process/update/CUpdate.h"

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

/// The other images come only inside a SYS package.
constexpr int kFilesOnStick[] = {kAppImage, kDSPImage, kXMLImage, kSYSImage};

constexpr char kLogoOnStick[] = "/mnt/usb/zel_logo.n62v.bin";
constexpr char kLogo[] = "/tmp/zel_logo.n62v.bin";

}  // namespace

int CUpdate::MountUSB(bool mount, const char* mountPoint) {
    static constexpr char kTag[] = "[CUpdate::MountUSB]";
    char point[256] = "";
    std::string_view(mountPoint).copy(point, sizeof(point) - 1);
    if (!mount) {
        usbMount(0, point);
        log_->WriteInfo("%s USB unmounted", kTag);
        return 0;
    }
    log_->WriteInfo("%s Try mount USB", kTag);
    for (int count = 1; checkUsbConnect() == kNoStick; ++count) {
        log_->WriteInfo("%s USB isn't connected, retry count(%d)", kTag, count);
        sleep(kPauseSeconds);
        if (count == kConnectionTries) {
            log_->WriteError("%s Cannot find USB connection", kTag);
            return -1;
        }
        log_->WriteInfo("%s Try mount USB", kTag);
    }
    if (usbMount(1, point) == kMountFailed) {
        log_->WriteError("%s USB mount failed", kTag);
        return -1;
    }
    log_->WriteInfo("%s USB mount success", kTag);
    return 0;
}

int CUpdate::GetFileInfo(Images& images) {
    int retries = 0;
    int count = 0;
    for (const int index : kFilesOnStick) {
        count += ReadFileInfo(index, images, retries) ? 1 : 0;
    }
    const int together = images[kSYSImage].IsFile + images[kAppImage].IsFile + images[kXMLImage].IsFile;
    if (together != 0 && together != 3) {
        log_->WriteError("%s Sys & App & XML images must be together", kInfoTag);
        return 0;
    }
    if (package_ != PackageVersions{} && CheckPackageVersion() != 0) {
        log_->WriteError("%s USB file is differ from package version.", kInfoTag);
        return -1;
    }
    return count;
}

bool CUpdate::ReadFileInfo(int index, Images& images, int& retries) {
    ImageInfo& image = images[static_cast<std::size_t>(index)];
    for (;;) {
        CFileSource file(image.FilePath.c_str());
        if (!file.IsOpen()) {
            log_->WriteInfo("%s %s file doesn't exist.", kInfoTag, image.FilePath.c_str());
            return false;
        }
        if (GetFileHeaderInfoFromUSB(index, file, images) == 0 &&
            (index != kAppImage || GetPackageVersion(file, images) == 0)) {
            image.IsFile = true;
            log_->WriteInfo("%s UPDATE FILE Info\n<Magic:%s><Ver:%s><Size:%d>", kInfoTag, image.Magic.c_str(),
                            device_->GetNewVersion(index).getVersion(), image.FileSize.load());
            return true;
        }
        if (retries >= kFileRetries) {
            return false;
        }
        ++retries;
        log_->WriteInfo("%s Retry reading usb file(%d time(s)).", kInfoTag, retries);
    }
}

int CUpdate::CopyContentsFromUSB(Images& images) {
    for (int i = 0; i < kImageCount; ++i) {
        if (!images[static_cast<std::size_t>(i)].NeedUpdate) {
            continue;
        }
        if ((i == kSYSImage ? CopyPackageFromUSB(images) : CopyImageFromUSB(i, images)) != 0) {
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

int CUpdate::CopyImageFromUSB(int index, Images& images) {
    const ImageInfo& image = images[static_cast<std::size_t>(index)];
    CFileSource source(image.FilePath.c_str());
    if (!source.IsOpen()) {
        log_->WriteError("%s File(Type:%d) open error", kContentsTag, index);
        return -1;
    }
    if (!source.Seek(kUpdateHeaderSize)) {
        log_->WriteError("%s file seek error: %s", kContentsTag, strerror(errno));
        return -1;
    }
    COutputFile file(image.RawPath.c_str());
    if (!file.IsOpen()) {
        log_->WriteError("%s New file open error", kContentsTag);
        return -1;
    }
    if (CopyFile(source, file, index, images) != 0) {
        log_->WriteError("%s Update file copy error", kContentsTag);
        return -1;
    }
    log_->WriteInfo("%s %s file copy complete", kContentsTag, image.RawPath.c_str());
    return 0;
}

int CUpdate::CopyPackageFromUSB(Images& images) {
    CFileSource package(images[kSYSImage].FilePath.c_str());
    if (!package.IsOpen()) {
        log_->WriteError("%s File(Type:%d) open error", kContentsTag, kSYSImage);
        return -1;
    }
    if (!package.Seek(kUpdateHeaderSize)) {
        log_->WriteError("%s file seek error: %s", kContentsTag, strerror(errno));
        return -1;
    }
    CPackageSections sections;
    while (!sections.AreComplete()) {
        if (CopySectionFromUSB(package, sections, images) != 0) {
            return -1;
        }
    }
    return 0;
}

int CUpdate::CopySectionFromUSB(CFileSource& package, CPackageSections& sections, Images& images) {
    const off_t start = package.Tell();
    std::string magic;
    if (!ReadMagic(package, magic)) {
        log_->WriteError("%s file read error", kContentsTag);
        return -1;
    }
    if (start < 0 || !package.Seek(start)) {
        log_->WriteError("%s file seek error: %s", kContentsTag, strerror(errno));
        return -1;
    }
    const int index = sections.Take(images, magic);
    if (index < 0) {
        log_->WriteError("%s Not correct file", kContentsTag);
        return -1;
    }
    if (GetFileHeaderInfoFromUSB(index, package, images) != 0) {
        return -1;
    }
    ImageInfo& image = images[static_cast<std::size_t>(index)];
    log_->WriteInfo("%s SYS Subfile Info\n<Magic:%s><Ver:%s><Size:%d>", kContentsTag, image.Magic.c_str(),
                    device_->GetNewVersion(index).getVersion(), image.FileSize.load());
    COutputFile file(image.RawPath.c_str());
    if (!file.IsOpen()) {
        log_->WriteError("%s New file open error", kContentsTag);
        return -1;
    }
    if (CopyFile(package, file, index, images) != 0) {
        log_->WriteError("%s Update file copy error", kContentsTag);
        return -1;
    }
    image.IsFile = true;
    image.NeedUpdate = true;
    image.InPackage = true;
    log_->WriteInfo("%s %s file copy complete", kContentsTag, image.RawPath.c_str());
    return 0;
}

int CUpdate::CopyFile(CFileSource& source, COutputFile& destination, int index, Images& images) {
    static constexpr char kTag[] = "[CUpdate::CopyFile]";
    log_->WriteInfo("%s Copy file[%d] start", kTag, index);
    ImageInfo& image = images[static_cast<std::size_t>(index)];
    ImageInfo& sys = images[kSYSImage];
    int retries = 0;
    for (auto left = static_cast<std::size_t>(image.FileSize); left > 0;) {
        const auto piece = source.Take(left);
        if (piece.empty()) {
            if (++retries > kReadRetries) {
                log_->WriteError("%s %d retry, but file read error occured", kTag, retries);
                return -1;
            }
            sleep(kPauseSeconds);
            continue;
        }
        if (!destination.Write(piece)) {
            log_->WriteError("%s file write error: %s", kTag, strerror(errno));
            return -1;
        }
        left -= piece.size();
        ForEachChunk(piece.size(), [&](std::int32_t count) {
            AddBytes(image.Download, count);
            if (IsPartOfSYS(index)) {
                AddBytes(sys.Download, count);
            }
            SendUDSUpdateStatus(images);
        });
    }
    if (IsPartOfSYS(index)) {
        AddBytes(sys.Download, kUpdateHeaderSize);
    }
    if (!destination.Close()) {
        log_->WriteError("%s file write error: %s", kTag, strerror(errno));
        return -1;
    }
    return 0;
}

}  // namespace RMUP::Process
