#include "process/update/CUpdateCommand.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "common/CTaggedLog.h"
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
    const CTaggedLog log(log_, "[CUpdateCommand::ProcessUpdateStart]");
    log.WriteInfo("Update start request from ZELApp accepted");
    const auto request = message.GetPayload();
    try {
        auto slot = service_.updates.Slot().Take();
        if (!slot || service_.device.GetStatus() == DeviceStatus::kUpdating) {
            log.WriteError("Another update processing now");
            return -1;
        }
        auto update = std::make_unique<CUpdate>(service_, request, std::move(*slot));
        update->Start();
        // From here on the remover of finished threads owns it; it may be gone already.
        (void)update.release();
        return 0;
    } catch (WorkException* thrown) {
        log.WriteError("Exception: %s", TakeMessage(thrown).c_str());
    }
    CUpdate::SendNotStarted(service_, request);
    return -1;
}

int CUpdateCommand::ProcessUpdateRequestRes(const CUDSMsg& message) {
    const CTaggedLog log(log_, "[CUpdateCommand::ProcessUpdateRequestRes]");
    log.WriteInfo("Update request's response message from ZELApp");
    const auto payload = message.GetPayload();
    if (payload.size() != 1) {
        log.WriteError("Data length differs from it's structure");
        return -1;
    }
    if (payload[0] == kPossible) {
        log.WriteInfo("Update possible status");
    } else if (payload[0] == kImpossible) {
        log.WriteInfo("Update impossible status, send it to PC");
        SendUpdateImpossible(service_, service_.device.GetSession());
    } else {
        log.WriteError("Unknown status");
    }
    return 0;
}

int CUpdateCommand::ProcessUpdateInfoRes(const CPCMsg& message, const SessionPtr& session) {
    const CTaggedLog log(log_, kInfoTag);
    log.WriteInfo("Process update image info from PC");
    const auto payload = message.GetPayload();
    std::size_t expected = kFlagsSize;
    if (payload.size() >= kFlagsSize) {
        for (const ImageId image : Wire::kImagesOfPC) {
            const bool offered = (Bytes::GetBE16(payload, 0) & Wire::RowOf(image).versionItem) != 0;
            expected += offered ? kVersionSize : 0;
        }
    }
    if (payload.size() < expected) {
        log.WriteError("Payload length differs from it's structure");
        return -1;
    }
    if (IsForeign(service_, session, log)) {
        return -1;
    }
    std::vector<std::uint8_t> report;
    {
        const CImageGate::Visit visit(service_.updates.Gate());
        if (!visit.IsWelcome()) {
            log.WriteError("Another update processing now");
            return -1;
        }
        TakeOffers(payload);
        report = JudgeOffers(session);
    }
    if (report.empty()) {
        log.WriteError("memory allocate error for Send Update Info message");
        return -1;
    }
    SendUpdateStatus(service_, report);
    return 0;
}

void CUpdateCommand::TakeOffers(std::span<const std::uint8_t> payload) {
    const CTaggedLog log(log_, kInfoTag);
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
        log.WriteInfo("%s file exists(Ver: %s)", image.Row.offeredName, version.getVersion());
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
    const CTaggedLog log(log_, kInfoTag);
    const ImageInfos& images = service_.device.GetImageInfo();
    if (CountMarks(images) > 0) {
        return MakeUpdateInfo(images, Wire::kImagesOfPC);
    }
    if (session->GetUpdateFlag()) {
        // Who asked for the offers ends on seeing the flag cleared; that nothing is newer is its last report.
        service_.updates.Slot().BeginEnd();
        session->SetUpdateFlag(false);
    }
    log.WriteInfo("There is no need to update file by PC");
    return {kNothingToUpdate};
}

int CUpdateCommand::ProcessUpdateCancel(const CPCMsg&, const SessionPtr& session) {
    const CTaggedLog log(log_, "[CUpdateCommand::ProcessUpdateCancel]");
    if (IsForeign(service_, session, log)) {
        return -1;
    }
    log.WriteInfo("Update cancel accepted");
    service_.device.SetUpdateFlag(true);
    return 0;
}
