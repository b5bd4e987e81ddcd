#include "process/update/UpdateMessages.h"

#include <algorithm>
#include <array>
#include <new>

#include "config/CConfigMgr.h"
#include "net/CPCMsg.h"
#include "net/CUDSMsg.h"
#include "net/CUDSServer.h"
#include "net/UDSMessageId.h"
#include "process/update/UpdateFile.h"
#include "wire/Bytes.h"
#include "wire/PCCommand.h"

namespace RMUP::Process {

namespace {

constexpr std::uint8_t kPCTag = 1;

std::uint8_t PeerID() {
    return static_cast<std::uint8_t>(CConfigMgr::GetInstance()->GetFirstChar(kPCPeerID));
}

}  // namespace

std::vector<std::uint8_t> MakeUpdateInfo(CDeviceInfo& device, std::span<const int> order, int count) {
    const ImageInfos& images = device.GetImageInfo();
    try {
        std::vector<std::uint8_t> payload = {kUpdateWillStart, static_cast<std::uint8_t>(count)};
        for (const int image : order) {
            if (!images[static_cast<std::size_t>(image)].NeedUpdate) {
                continue;
            }
            const auto version = VersionField(device.GetNewVersion(image));
            payload.insert(payload.end(), {static_cast<std::uint8_t>(image), kVersionSize, 0});
            payload.insert(payload.end(), version.begin(), version.end());
        }
        return payload;
    } catch (const std::bad_alloc&) {
        return {};
    }
}

std::vector<std::uint8_t> MakeUpdateProgress(const ImageInfos& images) {
    std::vector<std::uint8_t> payload = {kUpdateProgress, 0};
    for (const int index : kReportedImages) {
        const ImageInfo& image = images[static_cast<std::size_t>(index)];
        if (image.NeedUpdate) {
            payload.insert(payload.end(),
                           {static_cast<std::uint8_t>(index), static_cast<std::uint8_t>(image.Progress)});
            ++payload[1];
        }
    }
    return payload;
}

std::vector<std::uint8_t> MakeUpdateError(const UpdateError& error) {
    std::vector<std::uint8_t> payload(6);
    payload[0] = kUpdateFailed;
    Bytes::PutLE32(payload, 1, error.code);
    payload[5] = error.group;
    return payload;
}

void SendUpdateStatus(std::span<const std::uint8_t> payload) {
    CUDSMsg message;
    Net::CUDSServer::GetInstance()->SendMessage(message.GetSendPacket(kUDSUpdateStatus, payload));
}

void SendToPC(const std::shared_ptr<IPCSession>& session, std::uint16_t command,
              std::span<const std::uint8_t> payload) {
    if (session == nullptr) {
        return;
    }
    CPCMsg message;
    // A PC that does not get it is noticed as lost, or asks again.
    (void)session->SendMessage(message.MakePacket(command, kPCTag, PeerID(), payload));
}

void SendUpdateImpossible(const std::shared_ptr<IPCSession>& session) {
    if (session != nullptr) {
        session->SendErrorMessage(PeerID(), kPCTag, kUpdateImpossible);
    }
}

}  // namespace RMUP::Process
