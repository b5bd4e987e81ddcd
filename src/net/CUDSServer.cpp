#include "net/CUDSServer.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string>
#include <utility>

#include "common/CTaggedLog.h"
#include "common/Constants.h"
#include "common/ProcessEnd.h"
#include "net/MakeServer.h"
#include "net/SocketSetup.h"

namespace RMUP::Net {

namespace {

constexpr int kListenQueue = 5;
constexpr int kTimeoutSeconds = 5;
constexpr std::size_t kPathLimit = sizeof(sockaddr_un::sun_path);
static_assert(kPathLimit == 108);

// Payload of the connection status: four texts in fields of 20 bytes, each after its size, and the peer ID.
constexpr std::size_t kFieldSize = 20;
constexpr std::size_t kConnectedOffset = 0;
constexpr std::size_t kNameOffset = 1;
constexpr std::size_t kAddressOffset = 22;
constexpr std::size_t kPeerIDOffset = 43;
constexpr std::size_t kEmptyOffset = 44;
constexpr std::size_t kNoAddressOffset = 65;
constexpr std::size_t kStatusSize = 87;

constexpr char kOpenTag[] = "[CUDSServer::ServerOpen]";

void PutField(std::span<std::uint8_t> payload, std::size_t offset, const std::string& text) {
    payload[offset] = kFieldSize;
    std::copy_n(text.begin(), std::min(text.size(), kFieldSize),
                payload.begin() + static_cast<std::ptrdiff_t>(offset) + 1);
}

}  // namespace

CInstance<CUDSServer> CUDSServer::instance_;

CUDSServer* CUDSServer::GetInstance() {
    return instance_.Get(&MakeServer<CUDSServer>);
}

void CUDSServer::DestroyInstance() {
    instance_.Destroy();
}

CUDSServer::CUDSServer() : log_(QENFx::Log::Logger::getLogger()->getLog(kLogName)) {}

void CUDSServer::Connect(std::span<const UDSRoute> routes, CConfigMgr& config, CDeviceInfo& device) {
    routes_ = routes;
    config_ = &config;
    device_ = &device;
}

int CUDSServer::ServerOpen(const char* path) {
    const CTaggedLog log(log_, kOpenTag);
    log.WriteInfo("UDS server open start");
    if (Listen(path) && Accept(path)) {
        return 0;
    }
    listener_.Reset();
    return -1;
}

bool CUDSServer::Listen(const char* path) {
    const CTaggedLog log(log_, kOpenTag);
    listener_.Reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!listener_.IsOpen()) {
        log.WriteError("Socket open error: %s", strerror(errno));
        return false;
    }

    unlink(path);
    const std::size_t pathLength = strlen(path);
    if (pathLength >= kPathLimit) {
        log.WriteError("UDS server path can't over %d bytes, path will be truncated.", static_cast<int>(kPathLimit));
        return false;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path, pathLength);
    const auto addressLength = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + pathLength);
    if (bind(listener_.Get(), reinterpret_cast<const sockaddr*>(&address), addressLength) != 0) {
        log.WriteError("Bind error: %s", strerror(errno));
        return false;
    }
    log.WriteInfo("Bind success, Path: %s", path);

    if (listen(listener_.Get(), kListenQueue) != 0) {
        log.WriteError("Listen error: %s", strerror(errno));
        return false;
    }
    log.WriteInfo("Listening queue: %d", kListenQueue);
    return true;
}

bool CUDSServer::Accept(const char* path) {
    const CTaggedLog log(log_, kOpenTag);
    log.WriteInfo("%s Accept start", path);
    CDescriptor client;
    {
        const CEndingSignalsWindow window;
        client.Reset(accept4(listener_.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    }
    if (!client.IsOpen()) {
        log.WriteError("Accept error: %s", strerror(errno));
        client_.Replace();
        return false;
    }
    const int descriptor = client.Get();
    client_.Replace(std::move(client));
    log.WriteInfo("Accept client (fd: %d)", descriptor);
    for (const int option : {SO_SNDTIMEO, SO_RCVTIMEO}) {
        SetSocketTimeout(descriptor, option, kTimeoutSeconds, log, "Set socket option error");
    }
    return true;
}

int CUDSServer::ReceivePiece(const CDescriptor& client, std::span<std::uint8_t> piece) {
    const CTaggedLog log(log_, "[CUDSServer::ReceiveMessage]");
    // A process that was stopped and goes on is interrupted; giving up then would take the rest of a message for the
    // next one.
    const ssize_t received = TEMP_FAILURE_RETRY(recv(client.Get(), piece.data(), piece.size(), MSG_WAITALL));
    if (received < 0) {
        log.WriteError("Receive failed: %s", strerror(errno));
        return -1;
    }
    if (static_cast<std::size_t>(received) < piece.size()) {
        log.WriteError("Receive failed: %d/%d bytes", static_cast<int>(received), static_cast<int>(piece.size()));
    }
    return static_cast<int>(received);
}

int CUDSServer::ReceiveMessage(CUDSMsg& message) {
    const CTaggedLog log(log_, "[CUDSServer::ReceiveMessage]");
    const auto client = client_.Hold();
    if (!client->IsOpen()) {
        log.WriteError("Socket disconnected");
        return -2;
    }

    const int header = ReceivePiece(*client, message.GetHeader());
    if (header < static_cast<int>(CUDSMsg::kHeaderSize)) {
        return -1;
    }
    int payload = 0;
    if (message.GetPayloadLength() > 0) {
        const auto buffer = message.GetBufferData();
        if (buffer.empty()) {
            log.WriteError("Prepare memory for UDS data failed");
            return -1;
        }
        payload = ReceivePiece(*client, buffer);
        if (payload < static_cast<int>(buffer.size())) {
            return -1;
        }
    }
    // A short trailer goes on to the CRC, which settles the matter.
    const int trailer = ReceivePiece(*client, message.GetTrailer());
    if (trailer < 0) {
        return -1;
    }

    const int total = header + payload + trailer;
    log.WriteInfo("Receive UDS data complete <H:%d><D:%d><T:%d> Total(%dbytes)", header, payload, trailer, total);
    if (!message.IsValidCRC()) {
        log.WriteError("CRC checksum error");
        return -1;
    }
    return total;
}

int CUDSServer::SendMessage(std::span<const std::uint8_t> packet) {
    const CTaggedLog log(log_, "[CUDSServer::SendMessage]");
    const auto client = client_.Hold();
    const ssize_t sent = TEMP_FAILURE_RETRY(send(client->Get(), packet.data(), packet.size(), 0));
    if (sent < 0) {
        log.WriteError("send error: %s", strerror(errno));
        return 0;
    }
    log.WriteInfo("Send complete (%d bytes)", static_cast<int>(sent));
    return static_cast<int>(sent);
}

int CUDSServer::SendMessagePCCon(bool connected) {
    static constexpr char kTag[] = "[CUDSServer::SendMessagePCCon]";
    const CTaggedLog log(log_, kTag);
    const RegisteredPC pc = config_->GetRegisteredPC();
    std::array<std::uint8_t, kStatusSize> payload{};
    payload[kConnectedOffset] = connected ? 1 : 0;
    PutField(payload, kNameOffset, pc.name);
    PutField(payload, kAddressOffset, pc.address);
    payload[kPeerIDOffset] = static_cast<std::uint8_t>(pc.peerID);
    PutField(payload, kEmptyOffset, "");
    PutField(payload, kNoAddressOffset, kNoPCAddress);

    CUDSMsg message;
    const int sent = SendMessage(message.GetSendPacket(UDSMessageId::kPCConnection, payload));
    log.WriteInfo("Send UDS to inform connection status(%s)", connected ? "Connected" : "Disconnected");
    log_->WriteInfo("%s PC Name: %s, PC IP: %s, PC PeerID: %c", kTag, pc.name.c_str(), pc.address.c_str(), pc.peerID);
    message.WritePacketLog();
    return sent;
}

int CUDSServer::Run() {
    const CTaggedLog log(log_, "[CUDSServer::Run]");
    log.WriteInfo("UDS server thread run");
    SendMessagePCCon(false);
    announced_ = true;
    announced_.notify_all();
    mayServe_.wait(false);

    for (;;) {
        CUDSMsg message;
        const int received = ReceiveMessage(message);
        if (received == -2) {
            log.WriteInfo("Reconstruct socket");
            sleep(1);
            (void)ServerOpen(kUDSPath);  // the next round tries again
        } else if (received < 0) {
            // A transfer whose outcome nobody waits for any more must not keep the status.
            if (device_->GetStatus() == DeviceStatus::kTransferResult) {
                device_->SetStatus(DeviceStatus::kRegistered);
            }
            sleep(1);
        } else {
            log.WriteInfo("UDS receive complete");
            message.WritePacketLog();
            Dispatch(message);
        }
    }
}

void CUDSServer::Serve() {
    mayServe_ = true;
    mayServe_.notify_all();
}

void CUDSServer::Dispatch(CUDSMsg& message) {
    if (const UDSRoute* route = FindRoute(routes_, message.GetMessageId())) {
        route->handle(message);
    }
}

}  // namespace RMUP::Net
