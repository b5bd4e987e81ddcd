#include "process/update/UpdateMessages.h"

#include <algorithm>
#include <array>
#include <new>

#include "common/Constants.h"
#include "config/CConfigMgr.h"
#include "config/CDeviceInfo.h"
#include "net/CPCMsg.h"
#include "net/CUDSMsg.h"
#include "net/CUDSServer.h"
#include "net/UDSMessageId.h"
#include "platform/Log.h"
#include "process/update/UpdateFile.h"
#include "wire/Bytes.h"
#include "wire/PCCommand.h"

namespace RMUP::Process {

namespace {

constexpr std::uint8_t kPCTag = 1;

std::uint8_t PeerID(const ServiceContext& service) {
    return static_cast<std::uint8_t>(service.config.GetFirstChar(ConfigKey::kPCPeerID));
}

}  // namespace

std::vector<std::uint8_t> MakeUpdateInfo(const ImageInfos& images, std::span<const ImageId> order) {
    try {
        std::vector<std::uint8_t> payload = {kUpdateWillStart, static_cast<std::uint8_t>(CountMarks(images))};
        for (const ImageId wanted : order) {
            const ImageInfo& image = images[wanted];
            if (!image.NeedUpdate) {
                continue;
            }
            const auto version = VersionField(image.GetNewVersion());
            payload.insert(payload.end(), {static_cast<std::uint8_t>(image.Number()), kVersionSize, 0});
            payload.insert(payload.end(), version.begin(), version.end());
        }
        return payload;
    } catch (const std::bad_alloc&) {
        return {};
    }
}

std::vector<std::uint8_t> MakeUpdateProgress(const ImageInfos& images) {
    std::vector<std::uint8_t> payload = {kUpdateProgress, 0};
    for (const ImageId reported : Wire::kReportedImages) {
        const ImageInfo& image = images[reported];
        if (image.NeedUpdate) {
            payload.insert(payload.end(),
                           {static_cast<std::uint8_t>(image.Number()), static_cast<std::uint8_t>(image.Progress)});
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

void SendUpdateStatus(const ServiceContext& service, std::span<const std::uint8_t> payload) {
    CUDSMsg message;
    service.local.SendMessage(message.GetSendPacket(Net::UDSMessageId::kUpdateStatus, payload));
}

bool SendToPC(const ServiceContext& service, const std::shared_ptr<Net::ISession>& session, PCCommand command,
              std::span<const std::uint8_t> payload) {
    CPCMsg message;
    return session != nullptr &&
           session->SendMessage(message.MakePacket(command, kPCTag, PeerID(service), payload)) > 0;
}

void SendUpdateImpossible(const ServiceContext& service, const std::shared_ptr<Net::ISession>& session) {
    if (session != nullptr) {
        session->SendErrorMessage(PeerID(service), kPCTag, PCError::kUpdateImpossible);
    }
}

bool IsForeign(const ServiceContext& service, const std::shared_ptr<Net::ISession>& session, const CTaggedLog& log) {
    const auto current = service.device.GetSession();
    if (current == nullptr || current == session) {
        return false;
    }
    log.WriteError("Request from another PC than the connected one(IP:%s)", session->GetClientIPAddr().c_str());
    return true;
}

}  // namespace RMUP::Process
