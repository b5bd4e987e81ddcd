#include "net/CConnectionMonitor.h"

#include <unistd.h>

#include <array>
#include <chrono>
#include <memory>
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

bool CConnectionMonitor::ClaimLink(std::shared_ptr<IPCSession> session) {
    const std::lock_guard lock(linkMutex_);
    if (!CDeviceInfo::GetInstance()->ClaimSession(std::move(session))) {
        return false;
    }
    SetTCPConnection(true);
    return true;
}

void CConnectionMonitor::ReleaseLink(const IPCSession& session) {
    const std::lock_guard lock(linkMutex_);
    if (CDeviceInfo::GetInstance()->ReleaseSession(&session)) {
        SetTCPConnection(false);
    }
}

void CConnectionMonitor::SetTCPConnection(bool connected) {
    static constexpr char kTag[] = "[CConnectionMonitor::SetTCPConnection]";
    if (tcpConnected_.exchange(connected) == connected) {
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
    SetTCPConnection(true);
    CUDSServer::GetInstance()->SendMessagePCCon(true);
}

int CConnectionMonitor::SendIPChangedInfo() {
    const CConfigMgr* config = CConfigMgr::GetInstance();
    std::array<std::uint8_t, 6> payload{};
    Bytes::PutBE16(payload, 0, kItemDeviceAddress);
    Bytes::PutBE32(payload, 2, CNetUtils::AddressNumber(CNetUtils().GetMyIPAddr()));

    CPCMsg notice;
    const auto peerID = static_cast<std::uint8_t>(config->GetFirstChar(kPCPeerID));
    const auto packet = notice.MakePacket(kDeviceInfoChange, 1, peerID, payload);
    const sockaddr_in pc = CNetUtils::SocketAddress(config->GetContents(kPCIPAddress), config->GetNumber(kPCUDPPort));
    CUDPServer::GetInstance()->SendMessage(packet, pc);
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
    // Taken now: a PC that connects again while ZELApp is told of the loss has a new session, which nothing ails.
    std::unique_lock lock(linkMutex_);
    const auto session = device->GetSession();
    const bool tcp = tcpConnected_;
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
        if (device->GetStatus() == DeviceStatus::kDisconnect) {
            device->SetStatus(DeviceStatus::kRegistered);
        }
        return;
    }
    if (device->GetStatus() != DeviceStatus::kDisconnect) {
        device->SetStatus(DeviceStatus::kDisconnect);
    }
    if (session != nullptr) {
        session->StopSession();
        ReleaseLink(*session);
    }
}

}  // namespace RMUP::Net
