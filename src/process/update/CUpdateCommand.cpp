#include "process/update/CUpdateCommand.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "common/Constants.h"
#include "common/FrameworkError.h"
#include "platform/Service.h"
#include "process/update/CUpdate.h"
#include "process/update/CUpdateAccess.h"
#include "process/update/UpdateFile.h"
#include "process/update/UpdateMessages.h"
#include "wire/Bytes.h"

using QENFx::Common::Version;
using QENFx::Service::WorkException;

using namespace RMUP::Process;

namespace {

/// Which images the PC offers: bits, big-endian.
constexpr std::size_t kFlagsSize = 2;

constexpr std::uint8_t kPossible = 0;
constexpr std::uint8_t kImpossible = 1;

constexpr char kInfoTag[] = "[CUpdateCommand::ProcessUpdateInfoRes]";

}  // namespace

CUpdateCommand::CUpdateCommand(const ServiceContext& service)
    : log_(QENFx::Log::Logger::getLogger()->getLog(kLogName)), service_(service) {}

int CUpdateCommand::ProcessUpdateStart(const CUDSMsg& message) {
    static constexpr char kTag[] = "[CUpdateCommand::ProcessUpdateStart]";
    log_->WriteInfo("%s Update start request from ZELApp accepted", kTag);
    const auto request = message.GetPayload();
    try {
        auto slot = service_.updates.Slot().Take();
        if (!slot || service_.device.GetStatus() == DeviceStatus::kUpdating) {
            log_->WriteError("%s Another update processing now", kTag);
            return -1;
        }
        auto update = std::make_unique<CUpdate>(service_, request, std::move(*slot));
        update->Start();
        // From here on the remover of finished threads owns it; it may be gone already.
        (void)update.release();
        return 0;
    } catch (WorkException* thrown) {
        log_->WriteError("%s Exception: %s", kTag, TakeMessage(thrown).c_str());
    }
    CUpdate::SendNotStarted(service_, request);
    return -1;
}

int CUpdateCommand::ProcessUpdateRequestRes(const CUDSMsg& message) {
    static constexpr char kTag[] = "[CUpdateCommand::ProcessUpdateRequestRes]";
    log_->WriteInfo("%s Update request's response message from ZELApp", kTag);
    const auto payload = message.GetPayload();
    if (payload.size() != 1) {
        log_->WriteError("%s Data length differs from it's structure", kTag);
        return -1;
    }
    if (payload[0] == kPossible) {
        log_->WriteInfo("%s Update possible status", kTag);
    } else if (payload[0] == kImpossible) {
        log_->WriteInfo("%s Update impossible status, send it to PC", kTag);
        SendUpdateImpossible(service_, service_.device.GetSession());
    } else {
        log_->WriteError("%s Unknown status", kTag);
    }
    return 0;
}

int CUpdateCommand::ProcessUpdateInfoRes(const CPCMsg& message, const SessionPtr& session) {
    log_->WriteInfo("%s Process update image info from PC", kInfoTag);
    const auto payload = message.GetPayload();
    std::size_t expected = kFlagsSize;
    if (payload.size() >= kFlagsSize) {
        for (const ImageId image : Wire::kImagesOfPC) {
            const bool offered = (Bytes::GetBE16(payload, 0) & Wire::RowOf(image).versionItem) != 0;
            expected += offered ? kVersionSize : 0;
        }
    }
    if (payload.size() < expected) {
        log_->WriteError("%s Payload length differs from it's structure", kInfoTag);
        return -1;
    }
    if (IsForeign(service_, session, kInfoTag)) {
        return -1;
    }
    std::vector<std::uint8_t> report;
    {
        const CImageGate::Visit visit(service_.updates.Gate());
        if (!visit.IsWelcome()) {
            log_->WriteError("%s Another update processing now", kInfoTag);
            return -1;
        }
        TakeOffers(payload);
        report = JudgeOffers(session);
    }
    if (report.empty()) {
        log_->WriteError("%s memory allocate error for Send Update Info message", kInfoTag);
        return -1;
    }
    SendUpdateStatus(service_, report);
    return 0;
}

void CUpdateCommand::TakeOffers(std::span<const std::uint8_t> payload) {
    ImageInfos& images = service_.device.GetImageInfo();
    std::size_t offset = kFlagsSize;
    for (const ImageId offered : Wire::kImagesOfPC) {
        ImageInfo& image = images[offered];
        if ((Bytes::GetBE16(payload, 0) & image.Row.versionItem) == 0) {
            continue;
        }
        const Version version = ParseVersionField(payload.subspan(offset, kVersionSize));
        offset += kVersionSize;
        image.IsFile = true;
        image.SetNewVersion(version);
        if (image.GetCurrentVersion() < version) {
            image.NeedUpdate = true;
        }
        log_->WriteInfo("%s %s file exists(Ver: %s)", kInfoTag, image.Row.offeredName, version.getVersion());
    }
    // The XML archive is left out here; it joins the two when the images are compared for writing.
    ImageInfo& sys = images[ImageId::kSYS];
    ImageInfo& app = images[ImageId::kApp];
    if (sys.NeedUpdate || app.NeedUpdate) {
        sys.NeedUpdate = true;
        app.NeedUpdate = true;
    }
}

std::vector<std::uint8_t> CUpdateCommand::JudgeOffers(const SessionPtr& session) {
    const ImageInfos& images = service_.device.GetImageInfo();
    if (CountMarks(images) > 0) {
        return MakeUpdateInfo(images, Wire::kImagesOfPC);
    }
    if (session->GetUpdateFlag()) {
        // Who asked for the offers ends on seeing the flag cleared; that nothing is newer is its last report.
        service_.updates.Slot().BeginEnd();
        session->SetUpdateFlag(false);
    }
    log_->WriteInfo("%s There is no need to update file by PC", kInfoTag);
    return {kNothingToUpdate};
}

int CUpdateCommand::ProcessUpdateCancel(const CPCMsg&, const SessionPtr& session) {
    static constexpr char kTag[] = "[CUpdateCommand::ProcessUpdateCancel]";
    if (IsForeign(service_, session, kTag)) {
        return -1;
    }
    log_->WriteInfo("%s Update cancel accepted", kTag);
    service_.device.SetUpdateFlag(true);
    return 0;
}
