#include <array>

#include "config/CDeviceInfo.h"
#include "net/CUDSServer.h"
#include "net/UDSMessageId.h"
#include "process/CConnect.h"
#include "process/update/CUpdateAccess.h"
#include "process/update/UpdateMessages.h"

using RMUP::Process::CImageGate;

namespace {

constexpr char kTag[] = "[CConnect::ProcessUpdateStart]";

/// What ZELApp is asked.
constexpr std::uint8_t kPCAsksForUpdate = 4;

}  // namespace

int CConnect::ProcessUpdateStart(CPCMsg& message, const SessionPtr& session) {
    log_->WriteInfo("%s Update start request from PC accepted", kTag);
    const auto payload = message.GetPayload();
    if (payload.size() != 1) {
        log_->WriteError("%s Payload length differs from it's structure", kTag);
        return -1;
    }
    if (RMUP::Process::IsForeign(service_, session, kTag)) {
        RMUP::Process::SendUpdateImpossible(service_, session);
        return -1;
    }

    service_.updates.Slot().WaitEnd();
    {
        const CImageGate::Visit visit(service_.updates.Gate());
        if (!visit.IsWelcome() || service_.updates.Slot().IsTaken()) {
            // ZELApp is asked all the same and will say no; the running update keeps its marks.
            log_->WriteError("%s Another update processing now", kTag);
        } else {
            // Takes back a cancel as well, which from here on is one of this offer's update.
            service_.device.ClearImageInfo();
            for (const ImageId announced : Wire::kImagesOfPC) {
                ImageInfo& image = service_.device.GetImageInfo()[announced];
                if ((payload[0] & image.Row.offerBit) != 0) {
                    image.IsFile = true;
                    image.NeedUpdate = true;
                    log_->WriteInfo("%s %s update need", kTag, image.Row.name);
                }
            }
        }
    }

    CUDSMsg request;
    service_.local.SendMessage(request.GetSendPacket(kUDSUpdateRequest, std::array<std::uint8_t, 1>{kPCAsksForUpdate}));
    return 0;
}
