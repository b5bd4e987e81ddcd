#include "process/CConnect.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

#include "common/Constants.h"
#include "common/ProcessEnd.h"
#include "config/CConfigMgr.h"
#include "config/CDeviceInfo.h"
#include "db/CRmDao.h"
#include "net/CConnectionMonitor.h"
#include "net/CNetUtils.h"
#include "net/CUDPServer.h"
#include "wire/Bytes.h"
#include "wire/PCCommand.h"

using RMUP::Net::CConnectionMonitor;
using RMUP::Net::CUDPServer;

namespace {

// Register request: where its fields stand and how long they are.
constexpr std::size_t kRegisterSize = 25;
constexpr std::size_t kPasswordSize = 8;
constexpr std::size_t kUDPPortOffset = 8;
constexpr std::size_t kPCAddressOffset = 10;
constexpr std::size_t kAddressSize = 4;
constexpr std::size_t kNameOffset = 14;
constexpr std::size_t kNameSize = 10;
constexpr std::size_t kPeerIDOffset = 24;

/// A text field: its characters up to the padding, or up to a control character, which no line of settings or log
/// holds.
std::string TextField(std::span<const std::uint8_t> payload, std::size_t offset, std::size_t size) {
    const auto field = payload.subspan(offset, size);
    return std::string(field.begin(), std::ranges::find_if(field, [](std::uint8_t byte) { return byte < ' '; }));
}

/// Copies a text into a zeroed field, cut to the field's size.
void PutText(std::span<std::uint8_t> payload, std::size_t offset, std::size_t size, const std::string& text) {
    std::copy_n(text.begin(), std::min(text.size(), size), payload.begin() + static_cast<std::ptrdiff_t>(offset));
}

/// Takes the same time wherever the first difference stands. No password is stored as the empty text, which nothing
/// matches.
bool PasswordMatches(std::span<const std::uint8_t> given, const std::string& stored) {
    std::array<std::uint8_t, kPasswordSize> expected{};
    if (stored.empty() || stored.size() > expected.size()) {
        return false;
    }
    std::ranges::copy(stored, expected.begin());
    unsigned difference = 0;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        difference |= static_cast<unsigned>(given[i] ^ expected[i]);
    }
    return difference == 0;
}

}  // namespace

CConnect::CConnect() : log_(QENFx::Log::Logger::getLogger()->getLog(kLogName)) {}

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
    const CDeviceInfo* device = CDeviceInfo::GetInstance();
    const CConfigMgr* config = CConfigMgr::GetInstance();
    std::string modelName = device->GetProject().substr(0, kModelNameSize);
    if (device->GetModelType() == kVeterinaryModel) {
        modelName.replace(0, std::min<std::size_t>(modelName.size(), 4), "N62V");
    }

    std::array<std::uint8_t, kResponseSize> payload{};
    PutText(payload, 0, kSerialSize, device->GetSerialNumber());
    payload[15] = device->GetStatus() != DeviceStatus::kDisconnect ? 1 : 0;
    Bytes::PutBE16(payload, 16, config->GetNumber(kZELRMTCPPort));
    Bytes::PutBE32(payload, 18, CNetUtils::AddressNumber(CNetUtils().GetMyIPAddrFor(pcAddress)));
    Bytes::PutBE32(payload, 32, CNetUtils::AddressNumber(config->GetContents(kPCIPAddress)));
    PutText(payload, 36, kNameSize, config->GetContents(kPCSWName));
    PutText(payload, 60, kModelNameSize, modelName);

    CPCMsg response;
    const auto packet = response.MakePacket(kScanDeviceResponse, message.GetTag(), 0xFF, payload, true);
    CUDPServer::GetInstance()->SendMessage(packet, pc);
    response.WritePacketLog();
    log_->WriteInfo("%s Scan device sequence complete", kTag);
    return 0;
}

bool CConnect::MayRegister(CPCMsg& message, const SessionPtr& session) {
    static constexpr char kTag[] = "[CConnect::ProcessRegisterDevice]";
    const auto request = message.GetPayload();
    const std::uint8_t peerID = message.GetSubTag();
    const DeviceStatus status = CDeviceInfo::GetInstance()->GetStatus();
    if (status != DeviceStatus::kDisconnect && status != DeviceStatus::kRegistered) {
        log_->WriteError("%s Cannot register now, analyzing or update is in progress", kTag);
        if (status == DeviceStatus::kAnalyzing) {
            session->SendErrorMessage(peerID, message.GetTag(), kBusyAnalyzing);
        } else if (status == DeviceStatus::kUpdating) {
            session->SendErrorMessage(peerID, message.GetTag(), kBusyUpdating);
        }
        return false;
    }
    if (!PasswordMatches(request.first(kPasswordSize), CRmDao().GetAdminPassword())) {
        log_->WriteError("%s Admin password is not correct", kTag);
        session->SendErrorMessage(peerID, message.GetTag(), kWrongPassword);
        return false;
    }
    return true;
}

int CConnect::ProcessRegisterDevice(CPCMsg& message, const SessionPtr& session) {
    static constexpr char kTag[] = "[CConnect::ProcessRegisterDevice]";
    const auto request = message.GetPayload();
    if (request.size() != kRegisterSize) {
        log_->WriteError("%s Payload length differs from it's structure", kTag);
        return -1;
    }
    if (!MayRegister(message, session)) {
        return -1;
    }

    CDeviceInfo* device = CDeviceInfo::GetInstance();
    CConfigMgr* config = CConfigMgr::GetInstance();
    CConnectionMonitor* monitor = CConnectionMonitor::GetInstance();
    const std::string address = session->GetClientIPAddr();
    if (address.empty()) {
        return -1;  // the PC has gone meanwhile; there is nobody to register
    }
    // Read before the link goes down, on which the monitor takes the status back.
    const bool anotherPC = device->GetStatus() == DeviceStatus::kRegistered;
    monitor->SetTCPConnection(false);
    device->SetSession(session);
    monitor->SetIPChangePending(false);
    config->SetContents(kIPChanged, 0);

    if (anotherPC) {
        NotifyPreviousPC(message);
        monitor->SetTCPConnection(false);
    }

    log_->WriteInfo("%s Register device response making start", kTag);
    const std::string name = TextField(request, kNameOffset, kNameSize);
    const std::uint8_t peerID = request[kPeerIDOffset];
    config->SetContents(kPCIPAddress, address);
    config->SetContents(kPCSWName, name);
    config->SetContents(kPCPeerID, static_cast<char>(peerID));
    config->SetContents(kPCUDPPort, static_cast<int>(Bytes::GetBE16(request, kUDPPortOffset)));
    config->SetContents(kPCTCPPort, static_cast<int>(session->GetClientPort()));
    log_->WriteInfo("%s Set config (PCIP: %s, Name: %s, PeerID: %c)", kTag, address.c_str(), name.c_str(), peerID);

    CPCMsg response;
    (void)session->SendMessage(
        response.MakePacket(kRegisterDeviceResponse, message.GetTag(), peerID, std::span(&peerID, 1)));
    response.WritePacketLog();

    device->SetStatus(DeviceStatus::kRegistered);
    // The PC gets ready for the link before the device counts it as up.
    sleep(1);
    monitor->SetTCPConnection(true);
    log_->WriteInfo("%s Register device sequence complete", kTag);
    return 0;
}

void CConnect::NotifyPreviousPC(CPCMsg& request) {
    static constexpr char kTag[] = "[CConnect::ProcessRegisterDevice]";
    log_->WriteInfo("%s Change device info request making start", kTag);
    const CConfigMgr* config = CConfigMgr::GetInstance();
    std::array<std::uint8_t, 2 + kAddressSize + kNameSize> payload{};
    Bytes::PutBE16(payload, 0, kItemPCChanged);
    std::ranges::copy(request.GetPayload().subspan(kPCAddressOffset, kAddressSize + kNameSize), payload.begin() + 2);

    CPCMsg notice;
    const auto packet = notice.MakePacket(kDeviceInfoChange, request.GetTag(),
                                          static_cast<std::uint8_t>(config->GetFirstChar(kPCPeerID)), payload);
    CUDPServer::GetInstance()->SendMessage(
        packet, CNetUtils::SocketAddress(config->GetContents(kPCIPAddress), config->GetNumber(kPCUDPPort)));
}

int CConnect::ProcessUnregisterDevice(CPCMsg& message, const SessionPtr& session) {
    static constexpr char kTag[] = "[CConnect::ProcessUnregisterDevice]";
    log_->WriteInfo("%s Unregister device response making start", kTag);
    CConfigMgr* config = CConfigMgr::GetInstance();
    if (message.GetSubTag() != static_cast<std::uint8_t>(config->GetFirstChar(kPCPeerID)) ||
        session->GetClientIPAddr() != config->GetContents(kPCIPAddress)) {
        return -1;
    }
    if (session == CDeviceInfo::GetInstance()->GetSession()) {
        config->SetContents(kPCIPAddress, kNoPCAddress);
        config->SetContents(kPCSWName, "");
        config->SetContents(kPCPeerID, "0");
        config->SetContents(kPCUDPPort, "0");
        CConnectionMonitor::GetInstance()->SetTCPConnection(false);
    }

    CPCMsg response;
    (void)session->SendMessage(
        response.MakePacket(kUnregisterDeviceResponse, message.GetTag(), message.GetSubTag(), {}));
    response.WritePacketLog();
    log_->WriteInfo("%s Unregister device sequence complete", kTag);
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
    CDeviceInfo* device = CDeviceInfo::GetInstance();
    const CConfigMgr* config = CConfigMgr::GetInstance();
    const std::uint16_t mask = Bytes::GetBE16(message.GetPayload(), 0);
    if ((mask & kItemAnyVersion) != 0) {
        device->RefreshVersions();
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
        const DeviceStatus status = device->GetStatus();
        append(1)[0] = status == DeviceStatus::kAnalyzing ? 1 : status == DeviceStatus::kUpdating ? 3 : 4;
    }
    if ((mask & kItemPeerID) != 0) {
        append(1)[0] = static_cast<std::uint8_t>(config->GetNumber(kPCPeerID));
    }
    if ((mask & kItemTCPPort) != 0) {
        Bytes::PutBE16(append(2), 0, config->GetNumber(kZELRMTCPPort));
    }
    const std::string peer = session->GetClientIPAddr();
    if ((mask & kItemDeviceAddress) != 0) {
        Bytes::PutBE32(append(4), 0, CNetUtils::AddressNumber(CNetUtils().GetMyIPAddrFor(peer)));
    }
    if ((mask & kItemSerialNumber) != 0) {
        appendText(kSerialSize, device->GetSerialNumber());
    }
    if ((mask & kItemSYSVersion) != 0) {
        appendText(kVersionSize, device->GetSYSVersion());
    }
    if ((mask & kItemAppVersion) != 0) {
        appendText(kVersionSize, device->GetAppVersion());
    }
    if ((mask & kItemDSPVersion) != 0) {
        appendText(kVersionSize, device->GetDSPVersion());
    }
    if ((mask & kItemXMLVersion) != 0) {
        appendText(kVersionSize, device->GetXMLVersion());
    }
    // PC programs ask for the XML archive under two bits and expect the same version under both.
    if ((mask & kItemXMLVersionAgain) != 0) {
        appendText(kVersionSize, device->GetXMLVersion());
    }
    if ((mask & kItemReserved) != 0) {
        append(2);
    }

    auto subTag = static_cast<std::uint8_t>(config->GetFirstChar(kPCPeerID));
    if ((mask & kItemRegistration) != 0) {
        const std::string registered = config->GetContents(kPCIPAddress);
        if (peer == registered) {
            append(1)[0] = 1;
            CConnectionMonitor::GetInstance()->SetTCPConnection(true);
        } else {
            append(1)[0] = 0;
            Bytes::PutBE32(append(kAddressSize), 0, CNetUtils::AddressNumber(registered));
            appendText(kNameSize, config->GetContents(kPCSWName));
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

    const CConfigMgr* config = CConfigMgr::GetInstance();
    const sockaddr_in& pc = message.GetPeerAddress();
    const std::string address = CNetUtils::DottedAddress(pc.sin_addr);
    const std::uint16_t port = ntohs(pc.sin_port);
    if (address != config->GetContents(kPCIPAddress) || port != config->GetNumber(kPCUDPPort)) {
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
         TextField(payload, kSerialOffset, kSerialSize) !=
             CDeviceInfo::GetInstance()->GetSerialNumber().substr(0, kSerialSize))) {
        log_->WriteError("%s Device serial defer from PC request serial", kTag);
        return -1;
    }
    const auto peerID = static_cast<std::uint8_t>(config->GetFirstChar(kPCPeerID));
    if (message.GetSubTag() != peerID) {
        log_->WriteError("%s Device PeerID defer from PC request PeerID", kTag);
        return -1;
    }

    CPCMsg response;
    CUDPServer::GetInstance()->SendMessage(response.MakePacket(kDeviceInfoChangeAck, message.GetTag(), peerID, {}), pc);
    CConnectionMonitor::GetInstance()->SetUDPConnection(true);
    return 0;
}

void CConnect::ProcessIPChange() {
    static constexpr char kTag[] = "[CConnect::ProcessIPChange]";
    CConfigMgr* config = CConfigMgr::GetInstance();
    const std::string address = config->GetContents(kPCIPAddress);
    if (address != kNoPCAddress && address != kUSBPCAddress) {
        log_->WriteInfo("%s PCIP: %s is not USB IP(%s)", kTag, address.c_str(), kUSBPCAddress);
        config->SetContents(kIPChanged, 1);
        log_->WriteInfo("%s IP changed setting", kTag);
    }
    log_->WriteInfo("%s ZELRmUp killself", kTag);
    EndProcess();
}
