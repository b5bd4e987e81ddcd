#include "net/CConnectionMonitor.h"

#include <unistd.h>

#include <array>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "common/CTaggedLog.h"
#include "common/Constants.h"
#include "net/CNetUtils.h"
#include "net/CPCMsg.h"
#include "wire/Bytes.h"
#include "wire/PCCommand.h"

namespace RMUP::Net {

namespace {

constexpr std::chrono::milliseconds kPeriod{100};
constexpr std::chrono::seconds kLongestWait{1};
constexpr int kNoticePauseSeconds = 5;
constexpr int kNoticesPerLogLine = 121;

constexpr char kRunTag[] = "[CConnectionMonitor::Run]";

}  // namespace

CInstance<CConnectionMonitor> CConnectionMonitor::instance_;

// Unlike the servers it is not handed to the remover of finished threads: nothing ends it before the process does.
CConnectionMonitor* CConnectionMonitor::GetInstance() {
    return instance_.Get();
}

void CConnectionMonitor::DestroyInstance() {
    instance_.Destroy();
}

CConnectionMonitor::CConnectionMonitor() : log_(QENFx::Log::Logger::getLogger()->getLog(kLogName)) {}

void CConnectionMonitor::Connect(CConfigMgr& config, CDeviceInfo& device, CUDPServer& udp, CUDSServer& local) {
    config_ = &config;
    device_ = &device;
    udp_ = &udp;
    local_ = &local;
}

bool CConnectionMonitor::IsRegistered(const std::string& address) const {
    return !address.empty() && address == config_->GetContents(ConfigKey::kPCIPAddress);
}

bool CConnectionMonitor::ClaimLink(const std::shared_ptr<ISession>& session) {
    const std::string address = session->GetClientIPAddr();
    const std::lock_guard lock(linkMutex_);
    if (!IsLinkFree(*session) || !IsRegistered(address)) {
        return false;
    }
    SetLink(session, true);
    return true;
}

void CConnectionMonitor::ReleaseLink(const ISession& session) {
    const std::lock_guard lock(linkMutex_);
    if (device_->GetSession().get() == &session) {
        SetLink(nullptr, false);
    }
}

bool CConnectionMonitor::ReplaceLink(const std::shared_ptr<ISession>& session) {
    const std::lock_guard lock(linkMutex_);
    const auto before = device_->GetSession();
    const bool unconfirmed = before != nullptr && before != session && !tcpConnected_;
    SetLink(session, false);
    return unconfirmed;
}

void CConnectionMonitor::ConfirmLink(const ISession& session) {
    const std::lock_guard lock(linkMutex_);
    if (device_->GetSession().get() == &session) {
        SetTCPConnection(true);
    }
}

void CConnectionMonitor::SeeLink(const std::shared_ptr<ISession>& session) {
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

bool CConnectionMonitor::IsLinkFree(const ISession& session) const {
    // A PC that closes a connection and opens another may be quicker than the thread of the first one.
    const auto current = device_->GetSession();
    return current == nullptr || (current.get() != &session && current->HasPeerClosed());
}

void CConnectionMonitor::SetLink(const std::shared_ptr<ISession>& session, bool up) {
    ++linkNumber_;
    device_->SetSession(session);
    NoteChange();
    SetTCPConnection(up);
}

void CConnectionMonitor::SetTCPConnection(bool connected) {
    const CTaggedLog log(log_, "[CConnectionMonitor::SetTCPConnection]");
    if (std::exchange(tcpConnected_, connected) == connected) {
        return;
    }
    NoteChange();
    if (connected) {
        log.WriteInfo("TCP connection confirmed");
    } else {
        log.WriteInfo("TCP disconnection confirmed");
    }
}

void CConnectionMonitor::SetUDPConnection(bool connected) {
    const CTaggedLog log(log_, "[CConnectionMonitor::SetUDPConnection]");
    if (udpConnected_.exchange(connected) == connected) {
        return;
    }
    NoteChange();
    if (connected) {
        log.WriteInfo("UDP connection confirmed");
    } else {
        log.WriteInfo("UDP disconnection confirmed");
    }
}

void CConnectionMonitor::SetForceConnection() {
    {
        const std::lock_guard lock(linkMutex_);
        SetTCPConnection(true);
    }
    local_->SendMessagePCCon(true);
}

int CConnectionMonitor::SendIPChangedInfo() {
    const RegisteredPC pc = config_->GetRegisteredPC();
    std::array<std::uint8_t, 6> payload{};
    Bytes::PutBE16(payload, 0, kItemDeviceAddress);
    Bytes::PutBE32(payload, 2, CNetUtils::AddressNumber(CNetUtils().GetMyIPAddr()));

    CPCMsg notice;
    const auto packet =
        notice.MakePacket(PCCommand::kDeviceInfoChange, 1, static_cast<std::uint8_t>(pc.peerID), payload);
    udp_->SendMessage(packet, CNetUtils::SocketAddress(pc.address, pc.udpPort));
    return 0;
}

int CConnectionMonitor::Run() {
    AnnounceIPChange();
    auto step = std::chrono::steady_clock::now();
    while (!IsStopped()) {
        {
            const std::lock_guard lock(changeMutex_);
            changed_ = false;
        }
        if (Check()) {
            NoteChange();
        }
        while (!IsStopped() && !WaitForChange()) {
        }
        // A link that comes back before the next step was never away.
        const auto since = std::chrono::steady_clock::now() - step;
        step += since - since % kPeriod + kPeriod;
        std::this_thread::sleep_until(step);
    }
    return 0;
}

bool CConnectionMonitor::WaitForChange() {
    std::unique_lock lock(changeMutex_);
    return changeNoted_.wait_for(lock, kLongestWait, [this] { return changed_; });
}

void CConnectionMonitor::NoteChange() {
    {
        const std::lock_guard lock(changeMutex_);
        changed_ = true;
    }
    changeNoted_.notify_one();
}

void CConnectionMonitor::AnnounceIPChange() {
    const CTaggedLog log(log_, kRunTag);
    if (config_->GetContents(ConfigKey::kIPChanged) != "1") {
        return;
    }
    ipChangePending_ = true;
    int notices = 0;
    while (ipChangePending_) {
        SendIPChangedInfo();
        if (++notices >= kNoticesPerLogLine) {
            log.WriteInfo("Sending information to PC that the IP has been changed.");
            notices = 0;
        }
        sleep(kNoticePauseSeconds);
    }
}

bool CConnectionMonitor::Check() {
    const CTaggedLog log(log_, kRunTag);
    std::unique_lock lock(linkMutex_);
    const Link link = {device_->GetSession(), linkNumber_};
    // A link that took the place of the reported one is told as a loss and, at the next look, as a connection.
    const bool tcp = tcpConnected_ && (!connected_ || link.number == reported_.number);
    lock.unlock();
    const bool udp = udpConnected_;
    const bool up = tcp && udp;
    if (up == connected_) {
        return false;
    }
    connected_ = up;
    // The words are the same for both changes; the letters tell which it is.
    log.WriteInfo("connection success TCP(%c), UDP(%c)\n", tcp ? 'T' : 'F', udp ? 'T' : 'F');
    local_->SendMessagePCCon(up);

    if (up) {
        reported_ = link;
        if (device_->GetStatus() == DeviceStatus::kDisconnect) {
            device_->SetStatus(DeviceStatus::kRegistered);
        }
        return true;
    }
    if (device_->GetStatus() != DeviceStatus::kDisconnect) {
        device_->SetStatus(DeviceStatus::kDisconnect);
    }
    EndReported();
    return true;
}

void CConnectionMonitor::EndReported() {
    const Link ended = std::exchange(reported_, {});
    if (ended.session == nullptr) {
        return;
    }
    const std::lock_guard lock(linkMutex_);
    const bool current = device_->GetSession() == ended.session;
    if (current && linkNumber_ != ended.number) {
        return;  // the PC registered anew on its connection
    }
    ended.session->StopSession();
    if (current) {
        SetLink(nullptr, false);
    }
}

}  // namespace RMUP::Net
