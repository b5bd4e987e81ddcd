#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "common/CTaggedLog.h"
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
    const CTaggedLog log(log_, kTag);
    SkipWhatIsNotWritten();
    if (const ImageInfo* const image = FindIncomplete(images_); image != nullptr) {
        log.WriteError("ID(%d) is not received completely, nothing is written", image->Number());
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
    const CTaggedLog log(log_, kTag);
    switch (image.Row.installation) {
        case Wire::Installation::kBlocks:
            return WriteBlocks(image);
        case Wire::Installation::kUnzip:
            Unpack(image);
            break;
        case Wire::Installation::kZELApp:
            image.Written = image.FileSize.load();
            SendUDSUpdateStatus();
            log.WriteInfo("DSP update request to ZELApp by update status protocol");
            break;
        case Wire::Installation::kItsParts:
            break;
    }
    return true;
}

void CUpdate::SkipWhatIsNotWritten() {
    const CTaggedLog log(log_, kTag);
    ImageInfo& dsp = images_[ImageId::kDSP];
    if (dsp.NeedUpdate && dsp.FileSize == 0) {
        // The PC offers a DSP image with the others but is not asked for it: there is nothing to install and nothing to
        // record.
        dsp.NeedUpdate = false;
        log.WriteInfo("DSP update skip(image is not received.)");
    }
    for (const ImageId part : Wire::kSYSParts) {
        // Alone it would lie in a partition that nothing switches to.
        ImageInfo& image = images_[part];
        if (image.NeedUpdate && !images_[ImageId::kSYS].NeedUpdate) {
            image.NeedUpdate = false;
            log.WriteInfo("ID(%d) update skip(image is not of a SYS package.)", image.Number());
        }
    }
}

void CUpdate::SkipSameBootLoader() {
    const CTaggedLog log(log_, kTag);
    ImageInfo& boot = images_[ImageId::kBoot];
    if (!boot.IsFile || !boot.NeedUpdate || boot.GetCurrentVersion() < boot.GetNewVersion()) {
        return;
    }
    // A boot loader that fails to write cannot be got round, so it is not written without need.
    boot.NeedUpdate = false;
    AddBytes(images_[ImageId::kSYS].Written, std::int64_t{boot.FileSize} + kUpdateHeaderSize);
    log.WriteInfo("Boot Loader update skip(version is not changed.)");
}

bool CUpdate::WriteBlocks(ImageInfo& image) {
    const CTaggedLog log(log_, kTag);
    log.WriteInfo("ID(%d) write update image start", image.Number());
    CFileSource file(image.RawPath.c_str());
    if (!file.IsOpen()) {
        log.WriteError("Cannot open copied file (%s)", image.RawPath.c_str());
        return false;
    }
    const auto size = static_cast<std::size_t>(image.FileSize);
    const auto block = std::make_unique<std::uint8_t[]>(kBlockSize);
    for (std::size_t offset = 0; offset < size; offset += kBlockSize) {
        const std::size_t length = std::min(kBlockSize, size - offset);
        if (!file.Read({block.get(), length})) {
            log.WriteError("copied file (%s) read error", image.RawPath.c_str());
            return false;
        }
        if (upImgWrite(image.Number(), block.get(), static_cast<unsigned>(offset), static_cast<unsigned>(length)) < 0) {
            log.WriteError("Image write from upgrade util API error return");
            return false;
        }
        Count(images_, image, &ImageInfo::Written, static_cast<std::int64_t>(length));
        if (image.Written == image.FileSize) {
            CountHeader(images_, image, &ImageInfo::Written);
        }
        SendUDSUpdateStatus();
    }
    log.WriteInfo("ID(%d) image update complete", image.Number());
    return true;
}

bool CUpdate::CheckArchive(const ImageInfo& image) {
    const CTaggedLog log(log_, kTag);
    CFileSource archive(image.RawPath.c_str());
    if (!archive.IsOpen()) {
        log.WriteError("Cannot open copied file (%s)", image.RawPath.c_str());
        return false;
    }
    if (!MayBeUnpacked(archive)) {
        log.WriteError("copied file (%s) holds what is not to be unpacked", image.RawPath.c_str());
        return false;
    }
    return true;
}

void CUpdate::Unpack(ImageInfo& image) {
    const CTaggedLog log(log_, kTag);
    const XmlBank& bank = XmlBank::Target();
    if (!bank.Unpack(image.RawPath)) {
        log.WriteError("file (%s) open error", bank.notRun);
    }
    image.Written = image.FileSize.load();
    SendUDSUpdateStatus();
    log.WriteInfo("ID(%d) unzipped to %s", image.Number(), bank.directory);
}

void CUpdate::InstallLogo() {
    if (CFileSource(kLogo).IsOpen()) {
        RunShell("upgrade_util logo /tmp/zel_logo.n62v.bin");
        RunShell("rm -f /tmp/zel_logo.n62v.bin");
    }
}

int CUpdate::ChangeBootPartition() {
    const CTaggedLog log(log_, "[CUpdate::ChangeBootPartition]");
    if (!images_[ImageId::kSYS].NeedUpdate && !images_[ImageId::kApp].NeedUpdate) {
        return 0;
    }
    if (changeUpActiveIndex() != kSwitched) {
        log.WriteError("Change boot partition failed");
        return -1;
    }
    log.WriteInfo("Boot partition changed");
    return 0;
}

int CUpdate::SetNewVersion() {
    const CTaggedLog log(log_, "[CUpdate::SetNewVersion]");
    for (ImageInfo& image : images_) {
        if (!image.NeedUpdate) {
            continue;
        }
        const Version version = image.GetNewVersion();
        const auto text = VersionField(version);
        if (nv_set_img_version(image.Number(), reinterpret_cast<const char*>(text.data()), 0) != 0) {
            log.WriteError("nv version setting error");
            return -1;
        }
        image.SetCurrentVersion(version);
        log.WriteInfo("ID:%d, version:%s set", image.Number(), version.getVersion());
    }
    return 0;
}

}  // namespace RMUP::Process
