#pragma once

#include <atomic>
#include <cstdint>
#include <span>

#include "common/CInstance.h"
#include "common/CSharedDescriptor.h"
#include "config/CConfigMgr.h"
#include "config/CDeviceInfo.h"
#include "net/CUDSMsg.h"
#include "net/Route.h"
#include "platform/Log.h"
#include "platform/Service.h"

namespace RMUP::Net {

/// The socket on which ZELApp, and only ZELApp, talks to the service.
inline constexpr char kUDSPath[] = "/tmp/.rm_proc";

/// Serves the one connection of ZELApp: hands its messages to their routes and sends it the service's reports.
///
/// A ZELApp that goes away is not waited for again here: the next report to it raises SIGPIPE, which ends the service,
/// and the service that is started in its place waits for the new ZELApp.
class CUDSServer : public QENFx::Service::Thread {
public:
    static CUDSServer* GetInstance();
    static void DestroyInstance();

    CUDSServer();

    /// Before Start. All of it outlives the server.
    void Connect(std::span<const UDSRoute> routes, CConfigMgr& config, CDeviceInfo& device);

    /// Binds the path, which is unlinked first, and waits until ZELApp connects. Returns 0 or -1.
    [[nodiscard]] int ServerOpen(const char* path);

    /// Receives one message and checks its CRC. Returns its bytes; -1 after an error, a timeout of 5 s, the end of the
    /// connection, a short message or a wrong CRC; -2 when there is no connection.
    [[nodiscard]] int ReceiveMessage(CUDSMsg& message);

    /// Sends one message; from any thread. Returns the bytes sent, 0 on error.
    int SendMessage(std::span<const std::uint8_t> packet);

    /// Tells ZELApp whether a PC is connected, and which PC is registered. Returns the bytes sent.
    int SendMessagePCCon(bool connected);

    int Run() override;

    /// Waits until the running thread has sent its first message, so that ZELApp hears of the PC before anything else.
    void WaitAnnounced() const { announced_.wait(false); }

    /// Lets the running thread take requests. Until then they wait in the socket: a request must not meet a device
    /// state that is still being read.
    void Serve();

private:
    [[nodiscard]] bool Listen(const char* path);
    [[nodiscard]] bool Accept(const char* path);

    /// One recv that waits for the whole piece. Returns the bytes received, or -1 after an error line.
    int ReceivePiece(const CDescriptor& client, std::span<std::uint8_t> piece);
    void Dispatch(CUDSMsg& message);

    static CInstance<CUDSServer> instance_;

    QENFx::Log::FileLog* log_;
    CDescriptor listener_;
    CSharedDescriptor client_;
    std::atomic<bool> announced_{false};
    std::atomic<bool> mayServe_{false};
    std::span<const UDSRoute> routes_;
    CConfigMgr* config_ = nullptr;
    CDeviceInfo* device_ = nullptr;
};

}  // namespace RMUP::Net
