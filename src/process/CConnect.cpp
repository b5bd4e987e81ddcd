#include "process/CConnect.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

#include "common/Constants.h"
#include "common/ProcessEnd.h"
#include "config/CConfigMgr.h"
#include "config/CDeviceInfo.h"
#include "net/CConnectionMonitor.h"
#include "net/CNetUtils.h"
#include "net/CUDPServer.h"
#include "process/TextField.h"
#include "wire/Bytes.h"
#include "wire/PCCommand.h"

namespace {

constexpr std::size_t kAddressSize = 4;
constexpr std::size_t kNameSize = 10;

/// Copies a text into a zeroed field, cut to the field's size.
void PutText(std::span<std::uint8_t> payload, std::size_t offset, std::size_t size, const std::string& text) {
    std::copy_n(text.begin(), std::min(text.size(), size), payload.begin() + static_cast<std::ptrdiff_t>(offset));
}

}  // namespace

CConnect::CConnect(const RMUP::Process::ServiceContext& service)
    : log_(QENFx::Log::Logger::getLogger()->getLog(kLogName)), service_(service) {}

int CConnect::ProcessScanDevice(CPCMsg& message) {
    static constexpr char kTag[] = "[CConnect::ProcessScanDevice]";
    constexpr std::size_t kRequestSize = 10;
    constexpr std::size_t kResponseSize = 68;
    constexpr std::size_t kSerialSize = 15;
    constexpr std::size_t kModelNameSize = 8;

    const auto request = message.GetPayload();
    if (request.size() != kRequestSize) {
        log_->WriteError("%s Payload length differs from it's structure", kTag);
        return -1;
    }
    sockaddr_in& pc = message.GetPeerAddress();
    pc.sin_family = AF_INET;
    memcpy(&pc.sin_port, request.data(), sizeof(pc.sin_port));
    memcpy(&pc.sin_addr, request.data() + sizeof(pc.sin_port), sizeof(pc.sin_addr));
    const std::string pcAddress = CNetUtils::DottedAddress(pc.sin_addr);

    log_->WriteInfo("%s Scan device response making start", kTag);
    const CDeviceInfo& device = service_.device;
    const RegisteredPC registered = service_.config.GetRegisteredPC();
    std::string modelName = device.GetProject().substr(0, kModelNameSize);
    if (device.GetModelType() == kVeterinaryModel) {
        modelName.replace(0, std::min<std::size_t>(modelName.size(), 4), "N62V");
    }

    std::array<std::uint8_t, kResponseSize> payload{};
    PutText(payload, 0, kSerialSize, device.GetSerialNumber());
    payload[15] = device.GetStatus() != DeviceStatus::kDisconnect ? 1 : 0;
    Bytes::PutBE16(payload, 16, service_.config.GetNumber(kZELRMTCPPort));
    Bytes::PutBE32(payload, 18, CNetUtils::AddressNumber(CNetUtils().GetMyIPAddrFor(pcAddress)));
    Bytes::PutBE32(payload, 32, CNetUtils::AddressNumber(registered.address));
    PutText(payload, 36, kNameSize, registered.name);
    PutText(payload, 60, kModelNameSize, modelName);

    CPCMsg response;
    const auto packet = response.MakePacket(kScanDeviceResponse, message.GetTag(), 0xFF, payload, true);
    service_.udp.SendIfRoom(packet, pc);
    response.WritePacketLog();
    log_->WriteInfo("%s Scan device sequence complete", kTag);
    return 0;
}

int CConnect::ProcessGetDeviceInfo(CPCMsg& message, const SessionPtr& session) {
    static constexpr char kTag[] = "[CConnect::ProcessGetDeviceInfo]";
    constexpr std::size_t kSerialSize = 10;
    constexpr std::size_t kVersionSize = 16;

    if (message.GetPayload().size() != 2) {
        log_->WriteError("%s Payload length differs from it's structure", kTag);
        return -1;
    }
    log_->WriteInfo("%s Get device info response making start", kTag);
    CDeviceInfo& device = service_.device;
    const RegisteredPC registered = service_.config.GetRegisteredPC();
    const std::uint16_t mask = Bytes::GetBE16(message.GetPayload(), 0);
    if ((mask & kItemAnyVersion) != 0) {
        device.RefreshVersions();
    }

    std::vector<std::uint8_t> payload;
    // Appends a zeroed entry of that size.
    const auto append = [&payload](std::size_t size) {
        payload.resize(payload.size() + size);
        return std::span(payload).last(size);
    };
    const auto appendText = [&append](std::size_t size, const std::string& text) {
        PutText(append(size), 0, size, text);
    };

    Bytes::PutBE16(append(2), 0, mask);
    if ((mask & kItemActivity) != 0) {
        const DeviceStatus status = device.GetStatus();
        append(1)[0] = status == DeviceStatus::kAnalyzing ? 1 : status == DeviceStatus::kUpdating ? 3 : 4;
    }
    if ((mask & kItemPeerID) != 0) {
        append(1)[0] = static_cast<std::uint8_t>(service_.config.GetNumber(kPCPeerID));
    }
    if ((mask & kItemTCPPort) != 0) {
        Bytes::PutBE16(append(2), 0, service_.config.GetNumber(kZELRMTCPPort));
    }
    const std::string peer = session->GetClientIPAddr();
    if ((mask & kItemDeviceAddress) != 0) {
        Bytes::PutBE32(append(4), 0, CNetUtils::AddressNumber(CNetUtils().GetMyIPAddrFor(peer)));
    }
    if ((mask & kItemSerialNumber) != 0) {
        appendText(kSerialSize, device.GetSerialNumber());
    }
    if ((mask & kItemSYSVersion) != 0) {
        appendText(kVersionSize, device.GetSYSVersion());
    }
    if ((mask & kItemAppVersion) != 0) {
        appendText(kVersionSize, device.GetAppVersion());
    }
    if ((mask & kItemDSPVersion) != 0) {
        appendText(kVersionSize, device.GetDSPVersion());
    }
    if ((mask & kItemXMLVersion) != 0) {
        appendText(kVersionSize, device.GetXMLVersion());
    }
    // PC programs ask for the XML archive under two bits and expect the same version under both.
    if ((mask & kItemXMLVersionAgain) != 0) {
        appendText(kVersionSize, device.GetXMLVersion());
    }
    if ((mask & kItemReserved) != 0) {
        append(2);
    }

    auto subTag = static_cast<std::uint8_t>(registered.peerID);
    if ((mask & kItemRegistration) != 0) {
        if (peer == registered.address) {
            append(1)[0] = 1;
            service_.monitor.SeeLink(session);
        } else {
            append(1)[0] = 0;
            Bytes::PutBE32(append(kAddressSize), 0, CNetUtils::AddressNumber(registered.address));
            appendText(kNameSize, registered.name);
            subTag = 0xFF;
        }
    }

    CPCMsg response;
    (void)session->SendMessage(response.MakePacket(kInfo, message.GetTag(), subTag, payload));
    response.WritePacketLog();
    log_->WriteInfo("%s Get device info sequence complete", kTag);
    return 0;
}

int CConnect::ProcessDeviceInfoChangeNotify(CPCMsg& message) {
    static constexpr char kTag[] = "[CConnect::ProcessDeviceInfoChangeNotify]";
    constexpr std::size_t kSerialOffset = 2;
    constexpr std::size_t kSerialSize = 15;

    const RegisteredPC registered = service_.config.GetRegisteredPC();
    const sockaddr_in& pc = message.GetPeerAddress();
    const std::string address = CNetUtils::DottedAddress(pc.sin_addr);
    const std::uint16_t port = ntohs(pc.sin_port);
    if (address != registered.address || port != registered.udpPort) {
        log_->WriteInfo("%s Request from unregistered PC(IP:%s, Port:%d)", kTag, address.c_str(), port);
        return 0;
    }

    const auto payload = message.GetPayload();
    if (payload.size() < 2) {
        log_->WriteError("%s Payload length differs from it's structure", kTag);
        return -1;
    }
    if ((Bytes::GetBE16(payload, 0) & kItemSerialCheck) != 0 &&
        (payload.size() < kSerialOffset + kSerialSize ||
         TextField(payload, kSerialOffset, kSerialSize) != service_.device.GetSerialNumber().substr(0, kSerialSize))) {
        log_->WriteError("%s Device serial defer from PC request serial", kTag);
        return -1;
    }
    const auto peerID = static_cast<std::uint8_t>(registered.peerID);
    if (message.GetSubTag() != peerID) {
        log_->WriteError("%s Device PeerID defer from PC request PeerID", kTag);
        return -1;
    }

    CPCMsg response;
    service_.udp.SendMessage(response.MakePacket(kDeviceInfoChangeAck, message.GetTag(), peerID, {}), pc);
    service_.monitor.SetUDPConnection(true);
    return 0;
}

void CConnect::ProcessIPChange() {
    static constexpr char kTag[] = "[CConnect::ProcessIPChange]";
    const std::string address = service_.config.GetContents(kPCIPAddress);
    if (address != kNoPCAddress && address != kUSBPCAddress) {
        log_->WriteInfo("%s PCIP: %s is not USB IP(%s)", kTag, address.c_str(), kUSBPCAddress);
        service_.config.SetContents(kIPChanged, 1);
        log_->WriteInfo("%s IP changed setting", kTag);
    }
    log_->WriteInfo("%s ZELRmUp killself", kTag);
    EndProcess();
}
