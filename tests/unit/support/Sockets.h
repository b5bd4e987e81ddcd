#pragma once

#include <fcntl.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>

#include <span>

#include "common/CDescriptor.h"
#include "net/CNetUtils.h"
#include "net/SocketSetup.h"
#include "unit/support/ServiceTest.h"

namespace UnitTest {

/// A socket of the PC's or ZELApp's side; what it waits for comes within 10 s or not at all.
inline CDescriptor MakeSocket(int family, int type) {
    CDescriptor made(socket(family, type | SOCK_CLOEXEC, 0));
    EXPECT_TRUE(made.IsOpen() && RMUP::Net::SetSocketTimeout(made.Get(), SO_RCVTIMEO, 10) == 0);
    return made;
}

/// The connected sockets of the device and of its PC, over loopback; a narrow connection holds far less than the
/// largest packet.
struct TCPPair {
    explicit TCPPair(bool narrow = false) : pc(MakeSocket(AF_INET, SOCK_STREAM)) {
        const CDescriptor listener = MakeSocket(AF_INET, SOCK_STREAM);
        EXPECT_EQ(listen(listener.Get(), 1), 0);
        sockaddr_in address{};
        socklen_t length = sizeof(address);
        getsockname(listener.Get(), reinterpret_cast<sockaddr*>(&address), &length);
        const int size = 2048;
        if (narrow) {
            setsockopt(pc.Get(), SOL_SOCKET, SO_RCVBUF, &size, sizeof(size));
            setsockopt(listener.Get(), SOL_SOCKET, SO_SNDBUF, &size, sizeof(size));
        }
        EXPECT_EQ(connect(pc.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
        device = CDescriptor(accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    }

    CDescriptor pc;
    CDescriptor device;
};

/// A datagram socket of the PC.
inline CDescriptor UDPSocket(std::uint16_t port) {
    CDescriptor made = MakeSocket(AF_INET, SOCK_DGRAM);
    const sockaddr_in address = CNetUtils::SocketAddress("127.0.0.1", port);
    EXPECT_EQ(bind(made.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    return made;
}

inline void Send(const CDescriptor& to, std::span<const std::uint8_t> bytes) {
    EXPECT_EQ(send(to.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
}

/// Sends byte by byte, the next one when the one before has arrived.
inline void SendInPieces(const CDescriptor& to, std::span<const std::uint8_t> bytes) {
    for (; !bytes.empty(); bytes = bytes.subspan(1)) {
        Send(to, bytes.first(1));
        int waiting = 0;
        EXPECT_TRUE(WaitUntil([&] { return ioctl(to.Get(), SIOCOUTQ, &waiting) == 0 && waiting == 0; }));
    }
}

inline Buffer Receive(const CDescriptor& from, std::size_t size, int flags) {
    Buffer bytes(size);
    const ssize_t received = recv(from.Get(), bytes.data(), size, flags);
    bytes.resize(received < 0 ? 0 : static_cast<std::size_t>(received));
    return bytes;
}

/// Reads this many bytes of a stream, or fewer when it ends before.
inline Buffer Receive(const CDescriptor& from, std::size_t size) {
    return Receive(from, size, MSG_WAITALL);
}

/// Reads one datagram; without waiting it is empty when there is none yet.
inline Buffer ReceiveDatagram(const CDescriptor& from, bool wait = true) {
    return Receive(from, 8192, wait ? 0 : MSG_DONTWAIT);
}

}  // namespace UnitTest
