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

int CUpdate::WriteImage() {
    SkipWhatIsNotWritten();
    if (const ImageInfo* const image = FindIncomplete(images_); image != nullptr) {
        log_->WriteError("%s ID(%d) is not received completely, nothing is written", kTag, image->Number());
        return -1;
    }
    for (const ImageInfo& image : images_) {
        if (image.NeedUpdate && image.Row.installation == Wire::Installation::kUnzip && !CheckArchive(image)) {
            return -1;
        }
    }
    SkipSameBootLoader();
    for (ImageInfo& image : images_) {
        if (image.NeedUpdate && !Install(image)) {
            return -1;
        }
    }
    InstallLogo();
    return 0;
}

bool CUpdate::Install(ImageInfo& image) {
    switch (image.Row.installation) {
        case Wire::Installation::kBlocks:
            return WriteBlocks(image);
        case Wire::Installation::kUnzip:
            Unpack(image);
            break;
        case Wire::Installation::kZELApp:
            image.Written = image.FileSize.load();
            SendUDSUpdateStatus();
            log_->WriteInfo("%s DSP update request to ZELApp by update status protocol", kTag);
            break;
        case Wire::Installation::kItsParts:
            break;
    }
    return true;
}

void CUpdate::SkipWhatIsNotWritten() {
    ImageInfo& dsp = images_[ImageId::kDSP];
    if (dsp.NeedUpdate && dsp.FileSize == 0) {
        // The PC offers a DSP image with the others but is not asked for it: there is nothing to install and nothing to
        // record.
        dsp.NeedUpdate = false;
        log_->WriteInfo("%s DSP update skip(image is not received.)", kTag);
    }
    for (const ImageId part : Wire::kSYSParts) {
        // Alone it would lie in a partition that nothing switches to.
        ImageInfo& image = images_[part];
        if (image.NeedUpdate && !images_[ImageId::kSYS].NeedUpdate) {
            image.NeedUpdate = false;
            log_->WriteInfo("%s ID(%d) update skip(image is not of a SYS package.)", kTag, image.Number());
        }
    }
}

void CUpdate::SkipSameBootLoader() {
    ImageInfo& boot = images_[ImageId::kBoot];
    if (!boot.IsFile || !boot.NeedUpdate || boot.GetCurrentVersion() < boot.GetNewVersion()) {
        return;
    }
    // A boot loader that fails to write cannot be got round, so it is not written without need.
    boot.NeedUpdate = false;
    AddBytes(images_[ImageId::kSYS].Written, std::int64_t{boot.FileSize} + kUpdateHeaderSize);
    log_->WriteInfo("%s Boot Loader update skip(version is not changed.)", kTag);
}

bool CUpdate::WriteBlocks(ImageInfo& image) {
    log_->WriteInfo("%s ID(%d) write update image start", kTag, image.Number());
    CFileSource file(image.RawPath.c_str());
    if (!file.IsOpen()) {
        log_->WriteError("%s Cannot open copied file (%s)", kTag, image.RawPath.c_str());
        return false;
    }
    const auto size = static_cast<std::size_t>(image.FileSize);
    const auto block = std::make_unique<std::uint8_t[]>(kBlockSize);
    for (std::size_t offset = 0; offset < size; offset += kBlockSize) {
        const std::size_t length = std::min(kBlockSize, size - offset);
        if (!file.Read({block.get(), length})) {
            log_->WriteError("%s copied file (%s) read error", kTag, image.RawPath.c_str());
            return false;
        }
        if (upImgWrite(image.Number(), block.get(), static_cast<unsigned>(offset), static_cast<unsigned>(length)) < 0) {
            log_->WriteError("%s Image write from upgrade util API error return", kTag);
            return false;
        }
        Count(images_, image, &ImageInfo::Written, static_cast<std::int64_t>(length));
        if (image.Written == image.FileSize) {
            CountHeader(images_, image, &ImageInfo::Written);
        }
        SendUDSUpdateStatus();
    }
    log_->WriteInfo("%s ID(%d) image update complete", kTag, image.Number());
    return true;
}

bool CUpdate::CheckArchive(const ImageInfo& image) {
    CFileSource archive(image.RawPath.c_str());
    if (!archive.IsOpen()) {
        log_->WriteError("%s Cannot open copied file (%s)", kTag, image.RawPath.c_str());
        return false;
    }
    if (!MayBeUnpacked(archive)) {
        log_->WriteError("%s copied file (%s) holds what is not to be unpacked", kTag, image.RawPath.c_str());
        return false;
    }
    return true;
}

void CUpdate::Unpack(ImageInfo& image) {
    const XmlBank& bank = XmlBank::Target();
    if (!bank.Unpack(image.RawPath)) {
        log_->WriteError("%s file (%s) open error", kTag, bank.notRun);
    }
    image.Written = image.FileSize.load();
    SendUDSUpdateStatus();
    log_->WriteInfo("%s ID(%d) unzipped to %s", kTag, image.Number(), bank.directory);
}

void CUpdate::InstallLogo() {
    if (CFileSource(kLogo).IsOpen()) {
        RunShell("upgrade_util logo /tmp/zel_logo.n62v.bin");
        RunShell("rm -f /tmp/zel_logo.n62v.bin");
    }
}

int CUpdate::ChangeBootPartition() {
    static constexpr char kBootTag[] = "[CUpdate::ChangeBootPartition]";
    if (!images_[ImageId::kSYS].NeedUpdate && !images_[ImageId::kApp].NeedUpdate) {
        return 0;
    }
    if (changeUpActiveIndex() != kSwitched) {
        log_->WriteError("%s Change boot partition failed", kBootTag);
        return -1;
    }
    log_->WriteInfo("%s Boot partition changed", kBootTag);
    return 0;
}

int CUpdate::SetNewVersion() {
    static constexpr char kVersionTag[] = "[CUpdate::SetNewVersion]";
    for (ImageInfo& image : images_) {
        if (!image.NeedUpdate) {
            continue;
        }
        const Version version = image.GetNewVersion();
        const auto text = VersionField(version);
        if (nv_set_img_version(image.Number(), reinterpret_cast<const char*>(text.data()), 0) != 0) {
            log_->WriteError("%s nv version setting error", kVersionTag);
            return -1;
        }
        image.SetCurrentVersion(version);
        log_->WriteInfo("%s ID:%d, version:%s set", kVersionTag, image.Number(), version.getVersion());
    }
    return 0;
}

}  // namespace RMUP::Process
