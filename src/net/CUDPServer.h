#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <span>

#include "common/CInstance.h"
#include "common/CSharedDescriptor.h"
#include "net/CPCMsg.h"
#include "net/ILinkMonitor.h"
#include "net/Route.h"
#include "platform/Log.h"
#include "platform/Service.h"

namespace RMUP::Net {

/// Receives the PC's datagrams on port 9035 and hands them to their routes. Silence for 10 s, or a datagram that is no
/// packet, counts as loss of the UDP link.
class CUDPServer : public QENFx::Service::Thread {
public:
    static CUDPServer* GetInstance();
    static void DestroyInstance();

    CUDPServer();

    /// Before Start. Both outlive the server.
    void Connect(std::span<const UDPRoute> routes, ILinkMonitor* monitor);

    /// Opens and binds the socket. Returns 0 or -1.
    [[nodiscard]] int ServerOpen();

    /// Receives one datagram; its sender becomes the message's peer address. Returns its bytes; -1 after a timeout, an
    /// error or a datagram whose size is not what its header says; -2 when there is no socket.
    [[nodiscard]] int ReceiveMessage(CPCMsg& message);

    /// Sends one datagram, at once or not at all; from any thread. Returns the bytes sent, 0 on error.
    int SendMessage(std::span<const std::uint8_t> packet, const sockaddr_in& peer);

    /// The same to an address where perhaps nobody is. What goes to such an address lies in the send buffer for
    /// seconds; one half of the buffer is kept for the others.
    int SendIfRoom(std::span<const std::uint8_t> packet, const sockaddr_in& peer);

    int Run() override;

private:
    void Dispatch(CPCMsg& message);

    static CInstance<CUDPServer> instance_;

    QENFx::Log::FileLog* log_;
    CSharedDescriptor socket_;
    std::span<const UDPRoute> routes_;
    ILinkMonitor* monitor_ = nullptr;
    int heartbeats_ = 0;
};

}  // namespace RMUP::Net
