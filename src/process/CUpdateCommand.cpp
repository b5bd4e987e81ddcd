#include "process/CUpdateCommand.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "common/Constants.h"
#include "platform/Service.h"
#include "process/update/CUpdate.h"
#include "process/update/CUpdateSlot.h"
#include "process/update/UpdateFile.h"
#include "process/update/UpdateMessages.h"
#include "wire/Bytes.h"

using QENFx::Common::Version;
using QENFx::Service::WorkException;
using RMUP::Process::CImageReceiver;
using RMUP::Process::CUpdate;
using RMUP::Process::CUpdateSlot;

namespace {

/// Which images the PC offers: bits, big-endian.
constexpr std::size_t kFlagsSize = 2;

constexpr std::uint8_t kPossible = 0;
constexpr std::uint8_t kImpossible = 1;

constexpr char kInfoTag[] = "[CUpdateCommand::ProcessUpdateInfoRes]";

}  // namespace

CUpdateCommand::CUpdateCommand(const RMUP::Process::ServiceContext& service)
    : log_(QENFx::Log::Logger::getLogger()->getLog(kLogName)), service_(service), device_(&service.device) {}

int CUpdateCommand::ProcessUpdateStart(CUDSMsg& message) {
    static constexpr char kTag[] = "[CUpdateCommand::ProcessUpdateStart]";
    log_->WriteInfo("%s Update start request from ZELApp accepted", kTag);
    const auto request = message.GetPayload();
    try {
        auto slot = CUpdateSlot::Take();
        if (!slot || device_->GetStatus() == DeviceStatus::kUpdating) {
            log_->WriteError("%s Another update processing now", kTag);
            return -1;
        }
        auto update = std::make_unique<CUpdate>(request, std::move(*slot));
        update->Start();
        // From here on the remover of finished threads owns it; it may be gone already.
        (void)update.release();
        return 0;
    } catch (WorkException* thrown) {
        const std::unique_ptr<WorkException> exception(thrown);
        log_->WriteError("%s Exception: %s", kTag, exception->GetMessage());
    }
    RMUP::Process::SendUpdateNotStarted(request.size() > 1 ? request[1] : std::uint8_t{0});
    return -1;
}

int CUpdateCommand::ProcessUpdateRequestRes(CUDSMsg& message) {
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
        RMUP::Process::SendUpdateImpossible(service_.device.GetSession());
    } else {
        log_->WriteError("%s Unknown status", kTag);
    }
    return 0;
}

int CUpdateCommand::ProcessUpdateInfoRes(CPCMsg& message, const SessionPtr& session) {
    log_->WriteInfo("%s Process update image info from PC", kInfoTag);
    const auto payload = message.GetPayload();
    std::size_t expected = kFlagsSize;
    if (payload.size() >= kFlagsSize) {
        for (const ImageId image : Wire::kImagesOfPC) {
            const bool offered = (Bytes::GetBE16(payload, 0) & Wire::RowOf(image).versionItem) != 0;
            expected += offered ? RMUP::Process::kVersionSize : 0;
        }
    }
    if (payload.size() < expected) {
        log_->WriteError("%s Payload length differs from it's structure", kInfoTag);
        return -1;
    }
    if (RMUP::Process::IsForeign(session, kInfoTag)) {
        return -1;
    }
    std::vector<std::uint8_t> report;
    {
        const CImageReceiver::Visit visit(CImageReceiver::GetInstance());
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
    RMUP::Process::SendUpdateStatus(report);
    return 0;
}

void CUpdateCommand::TakeOffers(std::span<const std::uint8_t> payload) {
    ImageInfos& images = device_->GetImageInfo();
    std::size_t offset = kFlagsSize;
    for (const ImageId offered : Wire::kImagesOfPC) {
        ImageInfo& image = images[offered];
        if ((Bytes::GetBE16(payload, 0) & image.Row.versionItem) == 0) {
            continue;
        }
        const Version version = RMUP::Process::ParseVersionField(payload.subspan(offset, RMUP::Process::kVersionSize));
        offset += RMUP::Process::kVersionSize;
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
    const ImageInfos& images = device_->GetImageInfo();
    if (RMUP::Process::CountMarks(images) > 0) {
        return RMUP::Process::MakeUpdateInfo(images, Wire::kImagesOfPC);
    }
    if (session->GetUpdateFlag()) {
        // Who asked for the offers ends on seeing the flag cleared; that nothing is newer is its last report.
        CUpdateSlot::BeginEnd();
        session->SetUpdateFlag(false);
    }
    log_->WriteInfo("%s There is no need to update file by PC", kInfoTag);
    return {RMUP::Process::kNothingToUpdate};
}

int CUpdateCommand::ProcessUpdateCancel(CPCMsg&, const SessionPtr& session) {
    static constexpr char kTag[] = "[CUpdateCommand::ProcessUpdateCancel]";
    if (RMUP::Process::IsForeign(session, kTag)) {
        return -1;
    }
    log_->WriteInfo("%s Update cancel accepted", kTag);
    device_->SetUpdateFlag(true);
    return 0;
}
