#include "net/CConnectionMonitor.h"

#include <unistd.h>

#include <array>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "common/Constants.h"
#include "config/CConfigMgr.h"
#include "config/CDeviceInfo.h"
#include "net/CNetUtils.h"
#include "net/CPCMsg.h"
#include "net/CUDPServer.h"
#include "net/CUDSServer.h"
#include "wire/Bytes.h"
#include "wire/PCCommand.h"

namespace RMUP::Net {

namespace {

constexpr std::chrono::milliseconds kPeriod{100};
constexpr int kNoticePauseSeconds = 5;
constexpr int kNoticesPerLogLine = 121;

constexpr char kRunTag[] = "[CConnectionMonitor::Run]";

bool IsRegistered(const std::string& address) {
    return !address.empty() && address == CConfigMgr::GetInstance()->GetContents(kPCIPAddress);
}

}  // namespace

CInstance<CConnectionMonitor> CConnectionMonitor::instance_;

// Unlike the servers it is not handed to the remover of finished threads: nothing ends it before the process does.
CConnectionMonitor* CConnectionMonitor::GetInstance() {
    return instance_.Get([] { return std::make_unique<CConnectionMonitor>(); });
}

void CConnectionMonitor::DestroyInstance() {
    instance_.Destroy();
}

CConnectionMonitor::CConnectionMonitor() : log_(QENFx::Log::Logger::getLogger()->getLog(kLogName)) {}

bool CConnectionMonitor::ClaimLink(const std::shared_ptr<IPCSession>& session) {
    const std::string address = session->GetClientIPAddr();
    const std::lock_guard lock(linkMutex_);
    if (!IsLinkFree(*session) || !IsRegistered(address)) {
        return false;
    }
    SetLink(session, true);
    return true;
}

void CConnectionMonitor::ReleaseLink(const IPCSession& session) {
    const std::lock_guard lock(linkMutex_);
    if (CDeviceInfo::GetInstance()->GetSession().get() == &session) {
        SetLink(nullptr, false);
    }
}

bool CConnectionMonitor::ReplaceLink(const std::shared_ptr<IPCSession>& session) {
    const std::lock_guard lock(linkMutex_);
    const auto before = CDeviceInfo::GetInstance()->GetSession();
    const bool unconfirmed = before != nullptr && before != session && !tcpConnected_;
    SetLink(session, false);
    return unconfirmed;
}

void CConnectionMonitor::ConfirmLink(const IPCSession& session) {
    const std::lock_guard lock(linkMutex_);
    if (CDeviceInfo::GetInstance()->GetSession().get() == &session) {
        SetTCPConnection(true);
    }
}

void CConnectionMonitor::SeeLink(const std::shared_ptr<IPCSession>& session) {
    const std::string address = session->GetClientIPAddr();
    const std::lock_guard lock(linkMutex_);
    if (!IsRegistered(address)) {
        return;
    }
    if (IsLinkFree(*session)) {
        SetLink(session, true);
    } else {
        SetTCPConnection(true);
    }
}

bool CConnectionMonitor::IsLinkFree(const IPCSession& session) const {
    // A PC that closes a connection and opens another may be quicker than the thread of the first one.
    const auto current = CDeviceInfo::GetInstance()->GetSession();
    return current == nullptr || (current.get() != &session && current->HasPeerClosed());
}

void CConnectionMonitor::SetLink(const std::shared_ptr<IPCSession>& session, bool up) {
    ++linkNumber_;
    CDeviceInfo::GetInstance()->SetSession(session);
    SetTCPConnection(up);
}

void CConnectionMonitor::SetTCPConnection(bool connected) {
    static constexpr char kTag[] = "[CConnectionMonitor::SetTCPConnection]";
    if (std::exchange(tcpConnected_, connected) == connected) {
        return;
    }
    if (connected) {
        log_->WriteInfo("%s TCP connection confirmed", kTag);
    } else {
        log_->WriteInfo("%s TCP disconnection confirmed", kTag);
    }
}

void CConnectionMonitor::SetUDPConnection(bool connected) {
    static constexpr char kTag[] = "[CConnectionMonitor::SetUDPConnection]";
    if (udpConnected_.exchange(connected) == connected) {
        return;
    }
    if (connected) {
        log_->WriteInfo("%s UDP connection confirmed", kTag);
    } else {
        log_->WriteInfo("%s UDP disconnection confirmed", kTag);
    }
}

void CConnectionMonitor::SetForceConnection() {
    {
        const std::lock_guard lock(linkMutex_);
        SetTCPConnection(true);
    }
    CUDSServer::GetInstance()->SendMessagePCCon(true);
}

int CConnectionMonitor::SendIPChangedInfo() {
    const RegisteredPC pc = CConfigMgr::GetInstance()->GetRegisteredPC();
    std::array<std::uint8_t, 6> payload{};
    Bytes::PutBE16(payload, 0, kItemDeviceAddress);
    Bytes::PutBE32(payload, 2, CNetUtils::AddressNumber(CNetUtils().GetMyIPAddr()));

    CPCMsg notice;
    const auto packet = notice.MakePacket(kDeviceInfoChange, 1, static_cast<std::uint8_t>(pc.peerID), payload);
    CUDPServer::GetInstance()->SendMessage(packet, CNetUtils::SocketAddress(pc.address, pc.udpPort));
    return 0;
}

int CConnectionMonitor::Run() {
    AnnounceIPChange();
    while (!IsStopped()) {
        Check();
        std::this_thread::sleep_for(kPeriod);
    }
    return 0;
}

void CConnectionMonitor::AnnounceIPChange() {
    if (CConfigMgr::GetInstance()->GetContents(kIPChanged) != "1") {
        return;
    }
    ipChangePending_ = true;
    int notices = 0;
    while (ipChangePending_) {
        SendIPChangedInfo();
        if (++notices >= kNoticesPerLogLine) {
            log_->WriteInfo("%s Sending information to PC that the IP has been changed.", kRunTag);
            notices = 0;
        }
        sleep(kNoticePauseSeconds);
    }
}

void CConnectionMonitor::Check() {
    CDeviceInfo* device = CDeviceInfo::GetInstance();
    std::unique_lock lock(linkMutex_);
    const Link link = {device->GetSession(), linkNumber_};
    // A link that took the place of the reported one is told as a loss and, at the next look, as a connection.
    const bool tcp = tcpConnected_ && (!connected_ || link.number == reported_.number);
    lock.unlock();
    const bool udp = udpConnected_;
    const bool up = tcp && udp;
    if (up == connected_) {
        return;
    }
    connected_ = up;
    // The words are the same for both changes; the letters tell which it is.
    log_->WriteInfo("%s connection success TCP(%c), UDP(%c)\n", kRunTag, tcp ? 'T' : 'F', udp ? 'T' : 'F');
    CUDSServer::GetInstance()->SendMessagePCCon(up);

    if (up) {
        reported_ = link;
        if (device->GetStatus() == DeviceStatus::kDisconnect) {
            device->SetStatus(DeviceStatus::kRegistered);
        }
        return;
    }
    if (device->GetStatus() != DeviceStatus::kDisconnect) {
        device->SetStatus(DeviceStatus::kDisconnect);
    }
    EndReported();
}

void CConnectionMonitor::EndReported() {
    const Link ended = std::exchange(reported_, {});
    if (ended.session == nullptr) {
        return;
    }
    const std::lock_guard lock(linkMutex_);
    const bool current = CDeviceInfo::GetInstance()->GetSession() == ended.session;
    if (current && linkNumber_ != ended.number) {
        return;  // the PC registered anew on its connection
    }
    ended.session->StopSession();
    if (current) {
        SetLink(nullptr, false);
    }
}

}  // namespace RMUP::Net
