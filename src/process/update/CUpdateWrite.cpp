#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "common/Shell.h"
#include "platform/upgrade.h"
#include "process/update/CUpdate.h"
#include "process/update/XmlArchive.h"
#include "process/update/XmlBank.h"

namespace RMUP::Process {

namespace {

constexpr char kTag[] = "[CUpdate::WriteImage]";

constexpr std::size_t kBlockSize = 131072;

/// Answers of the device library.
constexpr int kSwitched = 100;

constexpr char kLogo[] = "/tmp/zel_logo.n62v.bin";

}  // namespace

int CUpdate::WriteImage(Images& images) {
    SkipWhatIsNotWritten(images);
    if (const int index = FindIncomplete(images); index >= 0) {
        log_->WriteError("%s ID(%d) is not received completely, nothing is written", kTag, index);
        return -1;
    }
    if (images[kXMLImage].NeedUpdate && CheckArchive(images[kXMLImage]) != 0) {
        return -1;
    }
    SkipSameBootLoader(images);
    for (int i = 0; i < kImageCount; ++i) {
        ImageInfo& image = images[static_cast<std::size_t>(i)];
        if (!image.NeedUpdate) {
            continue;
        }
        switch (i) {
            case kSYSImage:
                // Its four parts are written under their own indexes.
                break;
            case kDSPImage:
                image.Written = image.FileSize.load();
                SendUDSUpdateStatus(images);
                log_->WriteInfo("%s DSP update request to ZELApp by update status protocol", kTag);
                break;
            case kXMLImage:
                UnpackXML(images);
                break;
            default:
                if (WriteBlocks(i, images) != 0) {
                    return -1;
                }
                break;
        }
    }
    InstallLogo();
    return 0;
}

void CUpdate::SkipWhatIsNotWritten(Images& images) {
    ImageInfo& dsp = images[kDSPImage];
    if (dsp.NeedUpdate && dsp.FileSize == 0) {
        // The PC offers a DSP image with the others but is not asked for it: there is nothing to install and nothing to
        // record.
        dsp.NeedUpdate = false;
        log_->WriteInfo("%s DSP update skip(image is not received.)", kTag);
    }
    for (const int part : kSYSParts) {
        // Alone it would lie in a partition that nothing switches to.
        ImageInfo& image = images[static_cast<std::size_t>(part)];
        if (image.NeedUpdate && !images[kSYSImage].NeedUpdate) {
            image.NeedUpdate = false;
            log_->WriteInfo("%s ID(%d) update skip(image is not of a SYS package.)", kTag, part);
        }
    }
}

void CUpdate::SkipSameBootLoader(Images& images) {
    ImageInfo& boot = images[kBootImage];
    if (!boot.IsFile || !boot.NeedUpdate ||
        device_->GetCurrentVersion(kBootImage) < device_->GetNewVersion(kBootImage)) {
        return;
    }
    // A boot loader that fails to write cannot be got round, so it is not written without need.
    boot.NeedUpdate = false;
    AddBytes(images[kSYSImage].Written, std::int64_t{boot.FileSize} + kUpdateHeaderSize);
    log_->WriteInfo("%s Boot Loader update skip(version is not changed.)", kTag);
}

int CUpdate::WriteBlocks(int index, Images& images) {
    ImageInfo& image = images[static_cast<std::size_t>(index)];
    ImageInfo& sys = images[kSYSImage];
    log_->WriteInfo("%s ID(%d) write update image start", kTag, index);
    CFileSource file(image.RawPath.c_str());
    if (!file.IsOpen()) {
        log_->WriteError("%s Cannot open copied file (%s)", kTag, image.RawPath.c_str());
        return -1;
    }
    const auto size = static_cast<std::size_t>(image.FileSize);
    const auto block = std::make_unique<std::uint8_t[]>(kBlockSize);
    for (std::size_t offset = 0; offset < size; offset += kBlockSize) {
        const std::size_t length = std::min(kBlockSize, size - offset);
        if (!file.Read({block.get(), length})) {
            log_->WriteError("%s copied file (%s) read error", kTag, image.RawPath.c_str());
            return -1;
        }
        if (upImgWrite(index, block.get(), static_cast<unsigned>(offset), static_cast<unsigned>(length)) < 0) {
            log_->WriteError("%s Image write from upgrade util API error return", kTag);
            return -1;
        }
        const auto count = static_cast<std::int64_t>(length);
        AddBytes(image.Written, count);
        if (IsPartOfSYS(index)) {
            AddBytes(sys.Written, count);
            if (image.Written == image.FileSize) {
                AddBytes(sys.Written, kUpdateHeaderSize);
            }
        }
        SendUDSUpdateStatus(images);
    }
    log_->WriteInfo("%s ID(%d) image update complete", kTag, index);
    return 0;
}

int CUpdate::CheckArchive(const ImageInfo& image) {
    CFileSource archive(image.RawPath.c_str());
    if (!archive.IsOpen()) {
        log_->WriteError("%s Cannot open copied file (%s)", kTag, image.RawPath.c_str());
        return -1;
    }
    if (!MayBeUnpacked(archive)) {
        log_->WriteError("%s copied file (%s) holds what is not to be unpacked", kTag, image.RawPath.c_str());
        return -1;
    }
    return 0;
}

void CUpdate::UnpackXML(Images& images) {
    ImageInfo& image = images[kXMLImage];
    const XmlBank& bank = XmlBank::Target();
    if (!bank.Unpack(image.RawPath)) {
        log_->WriteError("%s file (%s) open error", kTag, bank.notRun);
    }
    image.Written = image.FileSize.load();
    SendUDSUpdateStatus(images);
    log_->WriteInfo("%s ID(%d) unzipped to %s", kTag, kXMLImage, bank.directory);
}

void CUpdate::InstallLogo() {
    if (CFileSource(kLogo).IsOpen()) {
        RunShell("upgrade_util logo /tmp/zel_logo.n62v.bin");
        RunShell("rm -f /tmp/zel_logo.n62v.bin");
    }
}

int CUpdate::ChangeBootPartition(Images& images) {
    static constexpr char kBootTag[] = "[CUpdate::ChangeBootPartition]";
    if (!images[kSYSImage].NeedUpdate && !images[kAppImage].NeedUpdate) {
        return 0;
    }
    if (changeUpActiveIndex() != kSwitched) {
        log_->WriteError("%s Change boot partition failed", kBootTag);
        return -1;
    }
    log_->WriteInfo("%s Boot partition changed", kBootTag);
    return 0;
}

int CUpdate::SetNewVersion(Images& images) {
    static constexpr char kVersionTag[] = "[CUpdate::SetNewVersion]";
    for (int i = 0; i < kImageCount; ++i) {
        if (!images[static_cast<std::size_t>(i)].NeedUpdate) {
            continue;
        }
        const Version version = device_->GetNewVersion(i);
        const auto text = VersionField(version);
        if (nv_set_img_version(i, reinterpret_cast<const char*>(text.data()), 0) != 0) {
            log_->WriteError("%s nv version setting error", kVersionTag);
            return -1;
        }
        device_->SetCurrentVersion(i, version);
        log_->WriteInfo("%s ID:%d, version:%s set", kVersionTag, i, version.getVersion());
    }
    return 0;
}

}  // namespace RMUP::Process
