#include "process/CConnect.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

#include "common/CTaggedLog.h"
#include "common/Constants.h"
#include "common/ProcessEnd.h"
#include "config/CConfigMgr.h"
#include "config/CDeviceInfo.h"
#include "net/CConnectionMonitor.h"
#include "net/CNetUtils.h"
#include "net/CUDPServer.h"
#include "net/CUDSServer.h"
#include "net/UDSMessageId.h"
#include "process/TextField.h"
#include "process/update/CUpdateAccess.h"
#include "process/update/UpdateMessages.h"
#include "wire/Bytes.h"
#include "wire/PCCommand.h"

using RMUP::Process::CImageGate;

namespace {

constexpr std::size_t kNameSize = 10;
constexpr std::size_t kModelNameSize = 8;

std::string ModelName(const CDeviceInfo& device) {
    std::string name = device.GetProject().substr(0, kModelNameSize);
    if (device.GetModelType() == kVeterinaryModel) {
        name.replace(0, std::min<std::size_t>(name.size(), 4), "N62V");
    }
    return name;
}

constexpr char kUpdateStartTag[] = "[CConnect::ProcessUpdateStart]";

/// What ZELApp is asked.
constexpr std::uint8_t kPCAsksForUpdate = 4;

}  // namespace

CConnect::CConnect(const RMUP::Process::ServiceContext& service)
    : log_(QENFx::Log::Logger::getLogger()->getLog(kLogName)), service_(service) {}

int CConnect::ProcessScanDevice(CPCMsg& message) {
    const CTaggedLog log(log_, "[CConnect::ProcessScanDevice]");
    constexpr std::size_t kRequestSize = 10;
    constexpr std::size_t kResponseSize = 68;
    constexpr std::size_t kSerialSize = 15;

    const auto request = message.GetPayload();
    if (request.size() != kRequestSize) {
        log.WriteError("Payload length differs from it's structure");
        return -1;
    }
    sockaddr_in& pc = message.GetPeerAddress();
    pc.sin_family = AF_INET;
    memcpy(&pc.sin_port, request.data(), sizeof(pc.sin_port));
    memcpy(&pc.sin_addr, request.data() + sizeof(pc.sin_port), sizeof(pc.sin_addr));
    const std::string pcAddress = CNetUtils::DottedAddress(pc.sin_addr);

    log.WriteInfo("Scan device response making start");
    const CDeviceInfo& device = service_.device;
    const RegisteredPC registered = service_.config.GetRegisteredPC();
    std::array<std::uint8_t, kResponseSize> payload{};
    PutText(std::span(payload).first(kSerialSize), device.GetSerialNumber());
    payload[15] = device.GetStatus() != DeviceStatus::kDisconnect ? 1 : 0;
    Bytes::PutBE16(payload, 16, service_.config.GetNumber(ConfigKey::kZELRMTCPPort));
    Bytes::PutBE32(payload, 18, CNetUtils::AddressNumber(CNetUtils().GetMyIPAddrFor(pcAddress)));
    Bytes::PutBE32(payload, 32, CNetUtils::AddressNumber(registered.address));
    PutText(std::span(payload).subspan(36, kNameSize), registered.name);
    PutText(std::span(payload).subspan(60, kModelNameSize), ModelName(device));

    CPCMsg response;
    const auto packet = response.MakePacket(PCCommand::kScanDeviceResponse, message.GetTag(), 0xFF, payload, true);
    service_.udp.SendIfRoom(packet, pc);
    response.WritePacketLog();
    log.WriteInfo("Scan device sequence complete");
    return 0;
}

int CConnect::ProcessDeviceInfoChangeNotify(const CPCMsg& message) {
    const CTaggedLog log(log_, "[CConnect::ProcessDeviceInfoChangeNotify]");
    constexpr std::size_t kSerialOffset = 2;
    constexpr std::size_t kSerialSize = 15;

    const RegisteredPC registered = service_.config.GetRegisteredPC();
    const sockaddr_in& pc = message.GetPeerAddress();
    const std::string address = CNetUtils::DottedAddress(pc.sin_addr);
    const std::uint16_t port = ntohs(pc.sin_port);
    if (address != registered.address || port != registered.udpPort) {
        log.WriteInfo("Request from unregistered PC(IP:%s, Port:%d)", address.c_str(), port);
        return 0;
    }

    const auto payload = message.GetPayload();
    if (payload.size() < 2) {
        log.WriteError("Payload length differs from it's structure");
        return -1;
    }
    if ((Bytes::GetBE16(payload, 0) & kItemSerialCheck) != 0 &&
        (payload.size() < kSerialOffset + kSerialSize ||
         TextField(payload, kSerialOffset, kSerialSize) != service_.device.GetSerialNumber().substr(0, kSerialSize))) {
        log.WriteError("Device serial defer from PC request serial");
        return -1;
    }
    const auto peerID = static_cast<std::uint8_t>(registered.peerID);
    if (message.GetSubTag() != peerID) {
        log.WriteError("Device PeerID defer from PC request PeerID");
        return -1;
    }

    CPCMsg response;
    service_.udp.SendMessage(response.MakePacket(PCCommand::kDeviceInfoChangeAck, message.GetTag(), peerID, {}), pc);
    service_.monitor.SetUDPConnection(true);
    return 0;
}

void CConnect::ProcessIPChange() {
    const CTaggedLog log(log_, "[CConnect::ProcessIPChange]");
    const std::string address = service_.config.GetContents(ConfigKey::kPCIPAddress);
    if (address != kNoPCAddress && address != kUSBPCAddress) {
        log.WriteInfo("PCIP: %s is not USB IP(%s)", address.c_str(), kUSBPCAddress);
        service_.config.SetContents(ConfigKey::kIPChanged, 1);
        log.WriteInfo("IP changed setting");
    }
    log.WriteInfo("ZELRmUp killself");
    EndProcess();
}

int CConnect::ProcessUpdateStart(const CPCMsg& message, const SessionPtr& session) {
    const CTaggedLog log(log_, kUpdateStartTag);
    log.WriteInfo("Update start request from PC accepted");
    const auto payload = message.GetPayload();
    if (payload.size() != 1) {
        log.WriteError("Payload length differs from it's structure");
        return -1;
    }
    if (RMUP::Process::IsForeign(service_, session, log)) {
        RMUP::Process::SendUpdateImpossible(service_, session);
        return -1;
    }

    service_.updates.Slot().WaitEnd();
    {
        const CImageGate::Visit visit(service_.updates.Gate());
        if (!visit.IsWelcome() || service_.updates.Slot().IsTaken()) {
            // ZELApp is asked all the same and will say no; the running update keeps its marks.
            log.WriteError("Another update processing now");
        } else {
            // Takes back a cancel as well, which from here on is one of this offer's update.
            service_.device.ClearImageInfo();
            for (const ImageId announced : Wire::kImagesOfPC) {
                ImageInfo& image = service_.device.GetImageInfo()[announced];
                if ((payload[0] & image.Row.offerBit) != 0) {
                    image.IsFile = true;
                    image.NeedUpdate = true;
                    log.WriteInfo("%s update need", image.Row.name);
                }
            }
        }
    }

    CUDSMsg request;
    service_.local.SendMessage(
        request.GetSendPacket(RMUP::Net::UDSMessageId::kUpdateRequest, std::array<std::uint8_t, 1>{kPCAsksForUpdate}));
    return 0;
}
