#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <thread>

#include "common/CTaggedLog.h"
#include "net/CConnectionMonitor.h"
#include "process/update/CUpdate.h"
#include "process/update/CUpdateAccess.h"
#include "wire/Bytes.h"
#include "wire/PCCommand.h"

namespace RMUP::Process {

namespace {

constexpr char kByPCTag[] = "[CUpdate::DownloadByPCMonitor]";

/// The PC is asked for the images of the release, by the bits that it announces them with.
constexpr unsigned RequestBit(const Wire::ImageRow& row) {
    return row.isOfRelease ? row.offerBit : 0;
}

constexpr auto kRequests = Wire::ImagesBy<&RequestBit>();

constexpr std::size_t kRequestSize = 6;
constexpr std::chrono::milliseconds kOfferPause{100};
constexpr unsigned kRoundSeconds = 1;
constexpr int kStalledRounds = 5;

bool IsReceived(const ImageInfo& image) {
    return image.FileSize != 0 && image.FileSize <= image.Download;
}

/// Whether the PC has pushed everything that it began or announced, and that something.
bool IsPushComplete(const ImageInfos& images) {
    return std::ranges::any_of(images, [](const ImageInfo& image) { return image.IsFile.load(); }) &&
           std::ranges::all_of(images, [](const ImageInfo& image) { return !image.IsFile || IsReceived(image); });
}

std::int64_t ReceivedTotal(const ImageInfos& images) {
    std::int64_t total = 0;
    for (const ImageInfo& image : images) {
        total += image.IsFile ? image.Download.load() : 0;
    }
    return total;
}

}  // namespace

int CUpdate::DownloadByPCMonitor() {
    const CTaggedLog log(log_, kByPCTag);
    log.WriteInfo("Download monitoring start (by PC)");
    if (!WaitForOffers()) {
        return -1;
    }
    if (CompareVersion(Comparison::kStrict) == 0) {
        log.WriteInfo("No need to update by PC");
        SendUDSUpdateError(kNothingToUpdate);
        return -1;
    }
    for (const ImageId image : kRequests) {
        if (images_[image].NeedUpdate && !RequestImage(images_[image])) {
            return -1;
        }
    }
    log.WriteInfo("Download update image by PC completed");
    return 0;
}

bool CUpdate::WaitForOffers() {
    for (;;) {
        // The answer's handler is let finish, so that an offer is not seen before its verdict.
        service_.updates.Gate().WaitIdle();
        const bool all = std::ranges::all_of(kRequests, [this](ImageId image) { return images_[image].IsFile.load(); });
        if (pc_ != nullptr && !pc_->GetUpdateFlag()) {
            return false;
        }
        if (IsPCLost()) {
            GiveUpPC();
            return false;
        }
        if (all) {
            return true;
        }
        std::this_thread::sleep_for(kOfferPause);
    }
}

bool CUpdate::RequestImage(const ImageInfo& image) {
    std::array<std::uint8_t, kRequestSize> payload{};
    Bytes::PutLE32(payload, 0, image.Row.offerBit);
    AskPC(PCCommand::kImageRequest, payload);
    for (;;) {
        SendUDSUpdateStatus();
        if (IsPCLost()) {
            GiveUpPC();
            return false;
        }
        if (image.FileSize != 0 && image.FileSize == image.Download) {
            return true;
        }
        sleep(kRoundSeconds);
    }
}

int CUpdate::DownloadFromPCMonitor() {
    const CTaggedLog log(log_, "[CUpdate::DownloadFromPCMonitor]");
    log.WriteInfo("Download monitoring start (from PC)");
    std::int64_t before = 0;
    std::int64_t total = 0;
    int stalled = 0;
    for (;;) {
        SendUDSUpdateStatus();
        if (total == before) {
            ++stalled;
            log.WriteInfo("download delayed (%d counts)", stalled);
        } else {
            stalled = 0;
        }
        if (IsPCLost() || stalled > kStalledRounds) {
            GiveUpPC();
            return -1;
        }
        const bool complete = IsPushComplete(images_);
        if (complete) {
            log.WriteInfo("Download update image from PC complete");
        }
        sleep(kRoundSeconds);
        before = total;
        total = ReceivedTotal(images_);
        if (complete) {
            return 0;
        }
    }
}

bool CUpdate::IsPCLost() const {
    return pc_ == nullptr || device_.GetSession() != pc_ || !service_.monitor.IsConnected() || device_.GetUpdateFlag();
}

void CUpdate::GiveUpPC() {
    SendUDSUpdateError(kErrorPC);
    device_.SetUpdateFlag(false);
}

}  // namespace RMUP::Process
