#include "net/CTCPSession.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>
#include <thread>

#include "common/CTaggedLog.h"
#include "common/Constants.h"
#include "net/CNetUtils.h"
#include "wire/Bytes.h"
#include "wire/PCCommand.h"

namespace RMUP::Net {

namespace {

constexpr int kWaitMilliseconds = 2000;
constexpr std::chrono::seconds kLongestStall{10};
constexpr int kAcknowledgementPolls = 29;
constexpr std::chrono::milliseconds kAcknowledgementPause{80};

constexpr char kRunTag[] = "[CTCPSession::Run]";

std::optional<sockaddr_in> PeerOf(const CDescriptor& socket, const CTaggedLog& log) {
    sockaddr_in peer{};
    socklen_t length = sizeof(peer);
    if (getpeername(socket.Get(), reinterpret_cast<sockaddr*>(&peer), &length) != 0) {
        log.WriteError("Get peer name error: %s", strerror(errno));
        return std::nullopt;
    }
    return peer;
}

/// Paces the retries on a socket that is not ready. The rest of a packet follows its start at once, so the first
/// retries are made at once as well and cost no wake-up; a peer that stops in the middle of a packet must not take the
/// processor from the others, so the later ones wait for the socket.
class Retry {
public:
    void Wait(const CDescriptor& socket, short event) {
        if (++count_ <= kAtOnce) {
            std::this_thread::yield();
            return;
        }
        pollfd ready{socket.Get(), event, 0};
        poll(&ready, 1, kLongestWaitMilliseconds);
    }

private:
    static constexpr int kAtOnce = 100;
    static constexpr int kLongestWaitMilliseconds = 100;

    int count_ = 0;
};

bool IsResult(std::span<const std::uint8_t> packet) {
    return PCCommand{Bytes::GetBE16(packet, 0)} == PCCommand::kResult;
}

}  // namespace

CTCPSession::CTCPSession(CDescriptor socket, const TCPRoutes& routes, ILinkMonitor* monitor, CResultMarker& results)
    : log_(QENFx::Log::Logger::getLogger()->getLog(kLogName)),
      routes_(routes),
      monitor_(monitor),
      results_(results),
      socket_(std::move(socket)) {
    ++count_;
}

void CTCPSession::Launch() {
    self_ = shared_from_this();
    try {
        Start();
    } catch (...) {
        self_.reset();
        throw;
    }
}

int CTCPSession::SendMessage(std::span<const std::uint8_t> packet) {
    const CTaggedLog log(log_, "[CTCPSession::SendMessage]");
    if (packet.size() < CPCMsg::kHeaderSize) {
        return -1;
    }
    // An acknowledgement that is still there belongs to an earlier packet.
    std::optional<CResultMarker::Awaited> awaited;
    if (IsResult(packet)) {
        awaited.emplace(results_, awaitedResults_);
    } else {
        results_.RemoveStale();
    }
    const auto socket = socket_.Hold();
    int sent = 0;
    if (!SendBytes(*socket, packet, sent)) {
        log.WriteError("Send error: %s (%d/%d bytes sended)", strerror(errno), sent, static_cast<int>(packet.size()));
        return -1;
    }
    log.WriteInfo("Send %d bytes complete", sent);
    if (awaited && !WaitAcknowledgement()) {
        log.WriteError("There is not ACK message from PC");
        return -1;
    }
    return sent;
}

bool CTCPSession::SendBytes(const CDescriptor& socket, std::span<const std::uint8_t> packet, int& sent) {
    Retry retry;
    auto progress = std::chrono::steady_clock::now();
    // After a partial send the packet goes out again from its start: a PC drops the piece and takes the packet whole.
    while (sent < static_cast<int>(packet.size())) {
        const ssize_t count = send(socket.Get(), packet.data(), packet.size(), 0);
        if (count >= 0) {
            sent += static_cast<int>(count);
            retry = {};
            progress = std::chrono::steady_clock::now();
        } else if (errno != EAGAIN && errno != EINTR) {
            return false;
        } else if (!socket_.IsOpen() || IsStopped()) {
            errno = EBADF;
            return false;
        } else if (std::chrono::steady_clock::now() - progress >= kLongestStall) {
            // With a piece of this packet before it the PC could not read the next one.
            Stop();
            errno = ETIMEDOUT;
            return false;
        } else {
            retry.Wait(socket, POLLOUT);
        }
    }
    return true;
}

bool CTCPSession::WaitAcknowledgement() {
    for (int i = 0; i < kAcknowledgementPolls; ++i) {
        if (CResultMarker::Exists()) {
            CResultMarker::Remove();
            return true;
        }
        std::this_thread::sleep_for(kAcknowledgementPause);
    }
    return false;
}

int CTCPSession::SendErrorMessage(std::uint8_t subTag, std::uint8_t tag, PCError error) {
    std::array<std::uint8_t, 2> payload{};
    Bytes::PutBE16(payload, 0, static_cast<std::uint16_t>(error));
    CPCMsg message;
    const auto packet = message.MakePacket(PCCommand::kErrorNotice, tag, subTag, payload);
    const int sent = SendMessage(packet);
    message.WritePacketLog();
    return sent - static_cast<int>(packet.size());
}

std::string CTCPSession::GetClientIPAddr() const {
    const auto peer = PeerOf(*socket_.Hold(), CTaggedLog(log_, "[CTCPSession::GetClientIPAddr]"));
    return peer ? CNetUtils::DottedAddress(peer->sin_addr) : std::string();
}

std::uint16_t CTCPSession::GetClientPort() const {
    const auto peer = PeerOf(*socket_.Hold(), CTaggedLog(log_, "[CTCPSession::GetClientPort]"));
    return peer ? ntohs(peer->sin_port) : std::uint16_t{0};
}

bool CTCPSession::HasPeerClosed() const {
    const auto socket = socket_.Hold();
    pollfd peer{socket->Get(), POLLRDHUP, 0};
    return !socket->IsOpen() || poll(&peer, 1, 0) > 0;
}

int CTCPSession::ReceiveMessage(CPCMsg& message) {
    const CTaggedLog log(log_, "[CTCPSession::ReceiveMessage]");
    const auto socket = socket_.Hold();
    if (!socket->IsOpen()) {
        log.WriteError("Socket disconnected");
        return -2;
    }

    constexpr int kHeaderSize = CPCMsg::kHeaderSize;
    const int header = ReceiveBytes(*socket, message.GetRawHeader());
    if (header < 0) {
        log.WriteError("Receive message header failed: %s", strerror(errno));
        return -1;
    }
    if (header < kHeaderSize) {
        log.WriteError("Receive header failed: %d/%d bytes", header, kHeaderSize);
        return -1;
    }

    const int length = static_cast<int>(message.GetPayloadLength());
    if (length > 0) {
        const auto payload = message.GetBufferData();
        if (payload.empty()) {
            log.WriteError("Prepare memory for TCP data failed");
            return -1;
        }
        const int body = ReceiveBytes(*socket, payload);
        if (body < 0) {
            log.WriteError("Receive message body failed: %s", strerror(errno));
            return -1;
        }
        if (body < length) {
            log.WriteError("Receive body failed: %d/%d bytes", body, length);
            return -1;
        }
    }
    log.WriteInfo("Receive TCP data complete <H:%d><P:%d> from %s", kHeaderSize, length, GetClientIPAddr().c_str());
    return 0;
}

int CTCPSession::ReceiveBytes(const CDescriptor& socket, std::span<std::uint8_t> bytes) {
    const CTaggedLog log(log_, "[CTCPSession::ReceiveMessage]");
    Retry retry;
    std::size_t received = 0;
    while (received < bytes.size()) {
        const ssize_t count = recv(socket.Get(), bytes.data() + received, bytes.size() - received, 0);
        if (count > 0) {
            received += static_cast<std::size_t>(count);
            retry = {};
        } else if (count == 0) {
            break;
        } else if (errno == EAGAIN || errno == EINTR) {
            // A session that is told to stop does not wait for the rest.
            if (IsStopped()) {
                errno = ECANCELED;
                return -1;
            }
            retry.Wait(socket, POLLIN);
        } else {
            const int error = errno;
            log.WriteError("recv failed: %s", strerror(error));
            errno = error;
            return -1;
        }
    }
    return static_cast<int>(received);
}

bool CTCPSession::MoveFromDescriptorZero() {
    const CTaggedLog log(log_, kRunTag);
    if (socket_.Hold()->Get() != 0) {
        return true;
    }
    // 0 means "no socket" in this program's logs and to its readers.
    CDescriptor moved(fcntl(0, F_DUPFD_CLOEXEC, 1));
    if (!moved.IsOpen()) {
        log.WriteError("Abnormal socket: %s", strerror(errno));
        return false;
    }
    log.WriteInfo("socket descriptor duplicated to %d", moved.Get());
    socket_.Replace(std::move(moved));
    return true;
}

void CTCPSession::BecomeCurrentIfRegistered() {
    const CTaggedLog log(log_, kRunTag);
    if (monitor_->ClaimLink(shared_from_this())) {
        log.WriteInfo("[%s] TCP session reconnected", GetClientIPAddr().c_str());
    }
}

bool CTCPSession::SetNonBlocking() {
    const CTaggedLog log(log_, kRunTag);
    const auto socket = socket_.Hold();
    const int flags = fcntl(socket->Get(), F_GETFL);
    if (flags < 0) {
        log.WriteError("Get socket mode error: %s", strerror(errno));
    } else if (fcntl(socket->Get(), F_SETFL, flags | O_NONBLOCK) < 0) {
        log.WriteError("Set socket mode error: %s", strerror(errno));
    } else {
        log.WriteInfo("Client socket is set non-blocking mode");
        return true;
    }
    log.WriteError("Client socket will be operated blocking mode");
    return false;
}

int CTCPSession::Run() {
    const std::shared_ptr<CTCPSession> self = shared_from_this();
    if (self_ != nullptr) {
        // On a thread of its own, which nobody waits for; until here the session owned itself. It detaches itself,
        // because whoever launched it may come too late for that.
        pthread_detach(pthread_self());
        self_.reset();
    }
    if (!MoveFromDescriptorZero()) {
        return -1;
    }
    BecomeCurrentIfRegistered();
    if (!SetNonBlocking()) {
        // Not closed while the session is current: whoever sends through it finds its socket as the PC opened it.
        return 0;
    }
    Serve();

    socket_.Replace();
    routes_.sessionEnded(self);
    monitor_->ReleaseLink(*this);
    return 0;
}

void CTCPSession::Serve() {
    const CTaggedLog log(log_, kRunTag);
    const auto socket = socket_.Hold();
    while (!IsStopped()) {
        pollfd readable{socket->Get(), POLLIN, 0};
        const int ready = poll(&readable, 1, kWaitMilliseconds);
        if (ready < 0) {
            log.WriteError("select error: %s", strerror(errno));
            log.WriteInfo("session close for connection reset");
            return;
        }
        if (ready == 0) {
            continue;
        }

        CPCMsg message;
        if (ReceiveMessage(message) != 0) {
            log.WriteInfo("PC Disconnected");
            return;
        }
        if (message.GetCommand() != PCCommand::kImageData) {
            message.WritePacketLog();
        }
        if (const TCPRoute* route = FindRoute(routes_.routes, message.GetCommand())) {
            route->handle(message, shared_from_this());
        }
    }
}

}  // namespace RMUP::Net
