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
    log_->WriteInfo("%s UDS server open start", kOpenTag);
    if (Listen(path) && Accept(path)) {
        return 0;
    }
    listener_.Reset();
    return -1;
}

bool CUDSServer::Listen(const char* path) {
    listener_.Reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!listener_.IsOpen()) {
        log_->WriteError("%s Socket open error: %s", kOpenTag, strerror(errno));
        return false;
    }

    unlink(path);
    const std::size_t pathLength = strlen(path);
    if (pathLength >= kPathLimit) {
        log_->WriteError("%s UDS server path can't over %d bytes, path will be truncated.", kOpenTag,
                         static_cast<int>(kPathLimit));
        return false;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path, pathLength);
    const auto addressLength = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + pathLength);
    if (bind(listener_.Get(), reinterpret_cast<const sockaddr*>(&address), addressLength) != 0) {
        log_->WriteError("%s Bind error: %s", kOpenTag, strerror(errno));
        return false;
    }
    log_->WriteInfo("%s Bind success, Path: %s", kOpenTag, path);

    if (listen(listener_.Get(), kListenQueue) != 0) {
        log_->WriteError("%s Listen error: %s", kOpenTag, strerror(errno));
        return false;
    }
    log_->WriteInfo("%s Listening queue: %d", kOpenTag, kListenQueue);
    return true;
}

bool CUDSServer::Accept(const char* path) {
    log_->WriteInfo("%s %s Accept start", kOpenTag, path);
    CDescriptor client;
    {
        const CEndingSignalsWindow window;
        client.Reset(accept4(listener_.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    }
    if (!client.IsOpen()) {
        log_->WriteError("%s Accept error: %s", kOpenTag, strerror(errno));
        client_.Replace();
        return false;
    }
    const int descriptor = client.Get();
    client_.Replace(std::move(client));
    log_->WriteInfo("%s Accept client (fd: %d)", kOpenTag, descriptor);
    for (const int option : {SO_SNDTIMEO, SO_RCVTIMEO}) {
        SetSocketTimeout(descriptor, option, kTimeoutSeconds, log_, kOpenTag, "Set socket option error");
    }
    return true;
}

int CUDSServer::ReceivePiece(const CDescriptor& client, std::span<std::uint8_t> piece) {
    static constexpr char kTag[] = "[CUDSServer::ReceiveMessage]";
    // A process that was stopped and goes on is interrupted; giving up then would take the rest of a message for the
    // next one.
    const ssize_t received = TEMP_FAILURE_RETRY(recv(client.Get(), piece.data(), piece.size(), MSG_WAITALL));
    if (received < 0) {
        log_->WriteError("%s Receive failed: %s", kTag, strerror(errno));
        return -1;
    }
    if (static_cast<std::size_t>(received) < piece.size()) {
        log_->WriteError("%s Receive failed: %d/%d bytes", kTag, static_cast<int>(received),
                         static_cast<int>(piece.size()));
    }
    return static_cast<int>(received);
}

int CUDSServer::ReceiveMessage(CUDSMsg& message) {
    static constexpr char kTag[] = "[CUDSServer::ReceiveMessage]";
    const auto client = client_.Hold();
    if (!client->IsOpen()) {
        log_->WriteError("%s Socket disconnected", kTag);
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
            log_->WriteError("%s Prepare memory for UDS data failed", kTag);
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
    log_->WriteInfo("%s Receive UDS data complete <H:%d><D:%d><T:%d> Total(%dbytes)", kTag, header, payload, trailer,
                    total);
    if (!message.IsValidCRC()) {
        log_->WriteError("%s CRC checksum error", kTag);
        return -1;
    }
    return total;
}

int CUDSServer::SendMessage(std::span<const std::uint8_t> packet) {
    static constexpr char kTag[] = "[CUDSServer::SendMessage]";
    const auto client = client_.Hold();
    const ssize_t sent = TEMP_FAILURE_RETRY(send(client->Get(), packet.data(), packet.size(), 0));
    if (sent < 0) {
        log_->WriteError("%s send error: %s", kTag, strerror(errno));
        return 0;
    }
    log_->WriteInfo("%s Send complete (%d bytes)", kTag, static_cast<int>(sent));
    return static_cast<int>(sent);
}

int CUDSServer::SendMessagePCCon(bool connected) {
    static constexpr char kTag[] = "[CUDSServer::SendMessagePCCon]";
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
    log_->WriteInfo("%s Send UDS to inform connection status(%s)", kTag, connected ? "Connected" : "Disconnected");
    log_->WriteInfo("%s PC Name: %s, PC IP: %s, PC PeerID: %c", kTag, pc.name.c_str(), pc.address.c_str(), pc.peerID);
    message.WritePacketLog();
    return sent;
}

int CUDSServer::Run() {
    static constexpr char kTag[] = "[CUDSServer::Run]";
    log_->WriteInfo("%s UDS server thread run", kTag);
    SendMessagePCCon(false);
    announced_ = true;
    announced_.notify_all();
    mayServe_.wait(false);

    for (;;) {
        CUDSMsg message;
        const int received = ReceiveMessage(message);
        if (received == -2) {
            log_->WriteInfo("%s Reconstruct socket", kTag);
            sleep(1);
            (void)ServerOpen(kUDSPath);  // the next round tries again
        } else if (received < 0) {
            // A transfer whose outcome nobody waits for any more must not keep the status.
            if (device_->GetStatus() == DeviceStatus::kTransferResult) {
                device_->SetStatus(DeviceStatus::kRegistered);
            }
            sleep(1);
        } else {
            log_->WriteInfo("%s UDS receive complete", kTag);
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
