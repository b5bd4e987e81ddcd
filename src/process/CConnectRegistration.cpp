#include <unistd.h>

#include <algorithm>
#include <array>
#include <mutex>
#include <span>

#include "common/CTaggedLog.h"
#include "config/CConfigMgr.h"
#include "config/CDeviceInfo.h"
#include "db/CRmDao.h"
#include "net/CConnectionMonitor.h"
#include "net/CNetUtils.h"
#include "net/CUDPServer.h"
#include "process/CConnect.h"
#include "process/TextField.h"
#include "wire/Bytes.h"
#include "wire/PCCommand.h"

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

constexpr char kRegisterTag[] = "[CConnect::ProcessRegisterDevice]";

/// Makes one step of which PC is stored and whose session is current. Held while the settings are written, and never
/// while somebody is sent something.
std::mutex registering;

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

bool CConnect::MayRegister(const CPCMsg& message, const SessionPtr& session) {
    const CTaggedLog log(log_, kRegisterTag);
    const auto request = message.GetPayload();
    const std::uint8_t peerID = message.GetSubTag();
    const DeviceStatus status = service_.device.GetStatus();
    if (status != DeviceStatus::kDisconnect && status != DeviceStatus::kRegistered) {
        log.WriteError("Cannot register now, analyzing or update is in progress");
        if (status == DeviceStatus::kAnalyzing) {
            session->SendErrorMessage(peerID, message.GetTag(), PCError::kBusyAnalyzing);
        } else if (status == DeviceStatus::kUpdating) {
            session->SendErrorMessage(peerID, message.GetTag(), PCError::kBusyUpdating);
        }
        return false;
    }
    if (!PasswordMatches(request.first(kPasswordSize), CRmDao().GetAdminPassword())) {
        log.WriteError("Admin password is not correct");
        session->SendErrorMessage(peerID, message.GetTag(), PCError::kWrongPassword);
        return false;
    }
    if (!CConfigMgr::IsStorablePeerID(request[kPeerIDOffset])) {
        log.WriteError("Peer ID cannot be stored");
        return false;
    }
    return true;
}

int CConnect::ProcessRegisterDevice(const CPCMsg& message, const SessionPtr& session) {
    const CTaggedLog log(log_, kRegisterTag);
    const auto request = message.GetPayload();
    if (request.size() != kRegisterSize) {
        log.WriteError("Payload length differs from it's structure");
        return -1;
    }
    if (!MayRegister(message, session)) {
        return -1;
    }

    const RegisteredPC pc = {.address = session->GetClientIPAddr(),
                             .tcpPort = session->GetClientPort(),
                             .udpPort = Bytes::GetBE16(request, kUDPPortOffset),
                             .name = TextField(request, kNameOffset, kNameSize),
                             .peerID = static_cast<char>(request[kPeerIDOffset])};
    if (pc.address.empty()) {
        return -1;  // the PC has gone meanwhile; there is nobody to register
    }
    Register(message, pc, session);

    const auto peerID = request[kPeerIDOffset];
    CPCMsg response;
    (void)session->SendMessage(
        response.MakePacket(PCCommand::kRegisterDeviceResponse, message.GetTag(), peerID, std::span(&peerID, 1)));
    response.WritePacketLog();

    service_.device.SetStatus(DeviceStatus::kRegistered);
    // The PC gets ready for the link before the device counts it as up.
    sleep(1);
    service_.monitor.ConfirmLink(*session);
    log.WriteInfo("Register device sequence complete");
    return 0;
}

void CConnect::Register(const CPCMsg& message, const RegisteredPC& pc, const SessionPtr& session) {
    const CTaggedLog log(log_, kRegisterTag);
    // Read before the link goes down, on which the monitor takes the status back.
    bool anotherPC = service_.device.GetStatus() == DeviceStatus::kRegistered;
    RegisteredPC previous;
    {
        const std::lock_guard lock(registering);
        // A PC that is just being registered is another PC, too.
        anotherPC |= service_.monitor.ReplaceLink(session);
        service_.monitor.SetIPChangePending(false);
        previous = service_.config.GetRegisteredPC();
        service_.config.SetRegisteredPC(pc);
        // Once more: until it was stored, the previous PC could come between.
        service_.monitor.ReplaceLink(session);
    }

    if (anotherPC) {
        NotifyPreviousPC(message, previous);
    }
    log.WriteInfo("Register device response making start");
    log_->WriteInfo("%s Set config (PCIP: %s, Name: %s, PeerID: %c)", kRegisterTag, pc.address.c_str(), pc.name.c_str(),
                    pc.peerID);
}

void CConnect::NotifyPreviousPC(const CPCMsg& request, const RegisteredPC& previous) {
    const CTaggedLog log(log_, kRegisterTag);
    log.WriteInfo("Change device info request making start");
    std::array<std::uint8_t, 2 + kAddressSize + kNameSize> payload{};
    Bytes::PutBE16(payload, 0, kItemPCChanged);
    std::ranges::copy(request.GetPayload().subspan(kPCAddressOffset, kAddressSize + kNameSize), payload.begin() + 2);

    CPCMsg notice;
    const auto packet = notice.MakePacket(PCCommand::kDeviceInfoChange, request.GetTag(),
                                          static_cast<std::uint8_t>(previous.peerID), payload);
    service_.udp.SendMessage(packet, CNetUtils::SocketAddress(previous.address, previous.udpPort));
}

int CConnect::ProcessUnregisterDevice(const CPCMsg& message, const SessionPtr& session) {
    const CTaggedLog log(log_, "[CConnect::ProcessUnregisterDevice]");
    log.WriteInfo("Unregister device response making start");
    const std::string address = session->GetClientIPAddr();
    {
        const std::lock_guard lock(registering);
        const RegisteredPC pc = service_.config.GetRegisteredPC();
        if (message.GetSubTag() != static_cast<std::uint8_t>(pc.peerID) || address != pc.address) {
            return -1;
        }
        if (session == service_.device.GetSession()) {
            service_.config.ForgetRegisteredPC();
            service_.monitor.ReleaseLink(*session);
        }
    }

    CPCMsg response;
    (void)session->SendMessage(
        response.MakePacket(PCCommand::kUnregisterDeviceResponse, message.GetTag(), message.GetSubTag(), {}));
    response.WritePacketLog();
    log.WriteInfo("Unregister device sequence complete");
    return 0;
}
