#include "net/CUDPServer.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "common/CTaggedLog.h"
#include "common/Constants.h"
#include "common/ProcessEnd.h"
#include "net/CNetUtils.h"
#include "net/MakeServer.h"
#include "net/SocketSetup.h"

namespace RMUP::Net {

namespace {

constexpr std::uint16_t kPort = 9035;
constexpr int kTimeoutSeconds = 10;
constexpr int kOpenRetrySeconds = 5;
constexpr std::size_t kMaxDatagram = 4096;
constexpr int kHeartbeatsPerLogLine = 120;

}  // namespace

CInstance<CUDPServer> CUDPServer::instance_;

CUDPServer* CUDPServer::GetInstance() {
    return instance_.Get(&MakeServer<CUDPServer>);
}

void CUDPServer::DestroyInstance() {
    instance_.Destroy();
}

CUDPServer::CUDPServer() : log_(QENFx::Log::Logger::getLogger()->getLog(kLogName)) {}

void CUDPServer::Connect(std::span<const UDPRoute> routes, ILinkMonitor* monitor) {
    routes_ = routes;
    monitor_ = monitor;
}

int CUDPServer::ServerOpen() {
    const CTaggedLog log(log_, "[CUDPServer::ServerOpen]");
    log.WriteInfo("UDP server open start");
    socket_.Replace();
    CDescriptor opened(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!opened.IsOpen()) {
        log.WriteError("Socket open error: %s", strerror(errno));
        return -1;
    }

    if (BindToPort(opened.Get(), kPort) != 0) {
        log.WriteError("Bind error: %s", strerror(errno));
        return -1;
    }
    log.WriteInfo("UDP bind success, <IP:%s><Port:%d>", CNetUtils().GetMyIPAddr().c_str(), kPort);

    SetSocketTimeout(opened.Get(), SO_SNDTIMEO, kTimeoutSeconds, log, "Set socket send timeout option error");
    SetSocketTimeout(opened.Get(), SO_RCVTIMEO, kTimeoutSeconds, log, "Set socket receive timeout option error");
    socket_.Replace(std::move(opened));
    return 0;
}

int CUDPServer::ReceiveMessage(CPCMsg& message) {
    const CTaggedLog log(log_, "[CUDPServer::ReceiveMessage]");
    const auto socket = socket_.Hold();
    if (!socket->IsOpen()) {
        log.WriteError("Socket destroyed");
        return -2;
    }

    std::array<std::uint8_t, kMaxDatagram> buffer{};
    sockaddr_in& peer = message.GetPeerAddress();
    socklen_t peerLength = sizeof(peer);
    // MSG_TRUNC gives the size that the datagram had, so that one that was cut cannot pass for a whole one. A process
    // that was stopped and goes on is interrupted; that is no silence of the PC.
    const ssize_t received = TEMP_FAILURE_RETRY(recvfrom(socket->Get(), buffer.data(), buffer.size(), MSG_TRUNC,
                                                         reinterpret_cast<sockaddr*>(&peer), &peerLength));
    if (received < 0) {
        return -1;
    }
    if (received == 0) {
        return 0;
    }

    const auto size = static_cast<std::size_t>(received);
    const auto header = message.GetRawHeader();
    // What did not come of a header is zero, as the buffer is.
    std::copy_n(buffer.begin(), header.size(), header.begin());
    const std::size_t expected = message.GetAnnouncedSize();
    if (size < header.size() || size != expected || size > buffer.size()) {
        log.WriteError("Receive failed: %d/%d bytes", static_cast<int>(std::min(size, buffer.size())),
                       static_cast<int>(expected));
        return -1;
    }
    const auto payload = message.GetBufferData();
    std::copy_n(buffer.begin() + CPCMsg::kHeaderSize, payload.size(), payload.begin());
    return static_cast<int>(size);
}

int CUDPServer::SendMessage(std::span<const std::uint8_t> packet, const sockaddr_in& peer) {
    const CTaggedLog log(log_, "[CUDPServer::SendMessage]");
    // A datagram that cannot go at once is worth nothing later, and whoever waits with it answers nobody meanwhile.
    const auto socket = socket_.Hold();
    const ssize_t sent = sendto(socket->Get(), packet.data(), packet.size(), MSG_DONTWAIT,
                                reinterpret_cast<const sockaddr*>(&peer), sizeof(peer));
    if (sent < 0) {
        log.WriteError("Send error: %s", strerror(errno));
        return 0;
    }
    return static_cast<int>(sent);
}

int CUDPServer::SendIfRoom(std::span<const std::uint8_t> packet, const sockaddr_in& peer) {
    const CTaggedLog log(log_, "[CUDPServer::SendMessage]");
    const auto socket = socket_.Hold();
    int waiting = 0;
    int size = 0;
    socklen_t length = sizeof(size);
    if (ioctl(socket->Get(), SIOCOUTQ, &waiting) == 0 &&
        getsockopt(socket->Get(), SOL_SOCKET, SO_SNDBUF, &size, &length) == 0 && waiting > size / 2) {
        log.WriteError("Send error: %s", strerror(EAGAIN));
        return 0;
    }
    return SendMessage(packet, peer);
}

int CUDPServer::Run() {
    const CTaggedLog log(log_, "[CUDPServer::Run]");
    log.WriteInfo("UDP server thread run");
    while (ServerOpen() != 0) {
        log.WriteError("UDP open error, try after 5 second");
        sleep(kOpenRetrySeconds);
    }

    for (;;) {
        CPCMsg message;
        const int received = ReceiveMessage(message);
        if (received >= 0) {
            Dispatch(message);
            continue;
        }
        monitor_->SetUDPConnection(false);
        if (received == -2 && ServerOpen() != 0) {
            log.WriteError("UDP reopen error, program shutdown");
            EndProcess();
        }
    }
}

void CUDPServer::Dispatch(CPCMsg& message) {
    static constexpr char kTag[] = "[CUDPServer::Run]";
    const CTaggedLog log(log_, kTag);
    const UDPRoute* route = FindRoute(routes_, message.GetCommand());
    if (route == nullptr) {
        return;
    }
    if (route->handle(message) < 0) {
        log_->WriteError(route->failure, kTag);
        return;
    }
    if (route->heartbeat && ++heartbeats_ > kHeartbeatsPerLogLine) {
        const sockaddr_in& peer = message.GetPeerAddress();
        log.WriteInfo("UDP Server is working well with IP: %s, Port: %d",
                      CNetUtils::DottedAddress(peer.sin_addr).c_str(), ntohs(peer.sin_port));
        heartbeats_ = 0;
    }
}

}  // namespace RMUP::Net
