#include <array>

#include "config/CDeviceInfo.h"
#include "net/CUDSServer.h"
#include "net/UDSMessageId.h"
#include "process/CConnect.h"
#include "process/update/CImageReceiver.h"
#include "process/update/CUpdateSlot.h"
#include "process/update/UpdateMessages.h"

using RMUP::Process::CImageReceiver;
using RMUP::Process::CUpdateSlot;

namespace {

constexpr char kTag[] = "[CConnect::ProcessUpdateStart]";

/// What ZELApp is asked.
constexpr std::uint8_t kPCAsksForUpdate = 4;

/// Images that the PC may announce, in the order in which they are looked at.
struct Announced {
    std::uint8_t bit;
    int image;
    const char* line;
};

constexpr Announced kAnnounced[] = {
    {0x08, kSYSImage, "%s SYS update need"},
    {0x10, kAppImage, "%s APP update need"},
    {0x20, kDSPImage, "%s DSP update need"},
    {0x40, kXMLImage, "%s XML update need"},
};

}  // namespace

int CConnect::ProcessUpdateStart(CPCMsg& message, const SessionPtr& session) {
    log_->WriteInfo("%s Update start request from PC accepted", kTag);
    const auto payload = message.GetPayload();
    if (payload.size() != 1) {
        log_->WriteError("%s Payload length differs from it's structure", kTag);
        return -1;
    }
    if (RMUP::Process::IsForeign(session, kTag)) {
        RMUP::Process::SendUpdateImpossible(session);
        return -1;
    }

    CUpdateSlot::WaitEnd();
    {
        const CImageReceiver::Visit visit(CImageReceiver::GetInstance());
        if (!visit.IsWelcome() || CUpdateSlot::IsTaken()) {
            // ZELApp is asked all the same and will say no; the running update keeps its marks.
            log_->WriteError("%s Another update processing now", kTag);
        } else {
            // Takes back a cancel as well, which from here on is one of this offer's update.
            service_.device.ClearImageInfo();
            for (const Announced& announced : kAnnounced) {
                if ((payload[0] & announced.bit) != 0) {
                    ImageInfo& image = service_.device.GetImageInfo()[static_cast<std::size_t>(announced.image)];
                    image.IsFile = true;
                    image.NeedUpdate = true;
                    log_->WriteInfo(announced.line, kTag);
                }
            }
        }
    }

    CUDSMsg request;
    service_.local.SendMessage(request.GetSendPacket(kUDSUpdateRequest, std::array<std::uint8_t, 1>{kPCAsksForUpdate}));
    return 0;
}
