#include "net/CTCPListener.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "common/CTaggedLog.h"
#include "common/Constants.h"
#include "common/FrameworkError.h"
#include "net/CNetUtils.h"
#include "net/CTCPSession.h"
#include "net/MakeServer.h"
#include "net/SocketSetup.h"

namespace RMUP::Net {

namespace {

constexpr std::uint16_t kPort = 9034;
constexpr int kListenQueue = 5;
constexpr int kSendTimeoutSeconds = 10;
constexpr int kOpenRetrySeconds = 5;
constexpr int kReopenRetrySeconds = 3;
constexpr int kMaxSessions = 200;

constexpr char kRunTag[] = "[CTCPListener::Run]";

}  // namespace

CInstance<CTCPListener> CTCPListener::instance_;

CTCPListener* CTCPListener::GetInstance() {
    return instance_.Get(&MakeServer<CTCPListener>);
}

void CTCPListener::DestroyInstance() {
    instance_.Destroy();
}

CTCPListener::CTCPListener() : log_(QENFx::Log::Logger::getLogger()->getLog(kLogName)) {}

void CTCPListener::Connect(const TCPRoutes& routes, ILinkMonitor* monitor, const CConfigMgr& config) {
    routes_ = &routes;
    monitor_ = monitor;
    config_ = &config;
}

int CTCPListener::ServerOpen() {
    const CTaggedLog log(log_, "[CTCPListener::ServerOpen]");
    log.WriteInfo("TCP listener open start");
    socket_.Reset();
    socket_.Reset(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!socket_.IsOpen()) {
        log.WriteError("Socket open error: %s", strerror(errno));
        return -1;
    }

    const int enabled = 1;
    if (setsockopt(socket_.Get(), SOL_SOCKET, SO_REUSEADDR, &enabled, sizeof(enabled)) == 0) {
        log.WriteInfo("Set socket REUSEADDR");
    } else {
        log.WriteError("Set socket option(SO_REUSEADDR) error: %s", strerror(errno));
    }

    if (BindToPort(socket_.Get(), kPort) != 0) {
        log.WriteError("Bind error: %s", strerror(errno));
        socket_.Reset();
        return -1;
    }
    log.WriteInfo("TCP bind success, <IP:%s><Port:%d>", CNetUtils().GetMyIPAddr().c_str(), kPort);

    if (listen(socket_.Get(), kListenQueue) != 0) {
        log.WriteError("Listen error: %s", strerror(errno));
        socket_.Reset();
        return -1;
    }
    log.WriteInfo("Listening start");

    SetSocketTimeout(socket_.Get(), SO_SNDTIMEO, kSendTimeoutSeconds, log, "Set socket option(SO_SNDTIMEO) error");
    if (SetConnectionLimits(socket_.Get()) != 0) {
        log.WriteError("Set socket limits error: %s", strerror(errno));
    }
    return 0;
}

int CTCPListener::Run() {
    const CTaggedLog log(log_, kRunTag);
    log.WriteInfo("TCP listener run");
    while (ServerOpen() != 0) {
        log.WriteError("TCP open error, try after 5 second");
        sleep(kOpenRetrySeconds);
    }

    log.WriteInfo("Accept start");
    for (;;) {
        sockaddr_in peer{};
        socklen_t length = sizeof(peer);
        CDescriptor socket(accept4(socket_.Get(), reinterpret_cast<sockaddr*>(&peer), &length, SOCK_CLOEXEC));
        if (socket.IsOpen()) {
            const std::string address = CNetUtils::DottedAddress(peer.sin_addr);
            log.WriteInfo("TCP client accepted <IP:%s><Port:%d>", address.c_str(), ntohs(peer.sin_port));
            if (HasPlaceFor(address)) {
                StartSession(std::move(socket));
            } else {
                log.WriteError("New session refused, %d are open", CTCPSession::Count());
            }
        } else {
            log.WriteError("Accept error: %s(%d)", strerror(errno), errno);
            log.WriteInfo("TCP Listener server socket reopen");
            // What accept lacked is not there again at once, and meanwhile a PC had better be refused than kept
            // waiting.
            socket_.Reset();
            sleep(kReopenRetrySeconds);
            while (ServerOpen() != 0) {
                log.WriteError("TCP open error, try after 3 second");
                sleep(kReopenRetrySeconds);
            }
        }
        log.WriteInfo("Accept start");
    }
}

bool CTCPListener::HasPlaceFor(const std::string& address) const {
    return CTCPSession::Count() < kMaxSessions || address == config_->GetContents(ConfigKey::kPCIPAddress);
}

void CTCPListener::StartSession(CDescriptor socket) {
    const CTaggedLog log(log_, kRunTag);
    const auto session = std::make_shared<CTCPSession>(std::move(socket), *routes_, monitor_, results_);
    log.WriteInfo("New session start");
    try {
        session->Launch();
    } catch (QENFx::Service::WorkException* thrown) {
        // One connection that cannot be served is no reason to stop serving the others.
        log.WriteError("New session failed: %s", TakeMessage(thrown).c_str());
    }
}

}  // namespace RMUP::Net
