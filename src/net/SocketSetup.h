#pragma once

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cstdint>

/// Sets SO_SNDTIMEO or SO_RCVTIMEO. Returns 0, or -1 with errno.
inline int SetSocketTimeout(int descriptor, int option, int seconds) {
    const timeval timeout{seconds, 0};
    return setsockopt(descriptor, SOL_SOCKET, option, &timeout, sizeof(timeout));
}

/// Bounds what a TCP connection, or one that the socket accepts, may cost. It ends when nothing was heard of the peer
/// for 150 s: a quiet peer is asked after 60 s and then every 15 s, and data that it does not acknowledge is given up.
/// A few of the largest packets at most wait for a peer that does not read. Returns 0, or -1 with errno.
inline int SetConnectionLimits(int descriptor) {
    struct Option {
        int level, name, value;
    };
    constexpr int kUnansweredMilliseconds = 150'000;
    constexpr int kSendBufferSize = 64 * 1024;  // of which the kernel makes twice as much
    for (const auto& [level, name, value] : {Option{SOL_SOCKET, SO_KEEPALIVE, 1},
                                             {IPPROTO_TCP, TCP_KEEPIDLE, 60},
                                             {IPPROTO_TCP, TCP_KEEPINTVL, 15},
                                             {IPPROTO_TCP, TCP_KEEPCNT, 6},
                                             {IPPROTO_TCP, TCP_USER_TIMEOUT, kUnansweredMilliseconds},
                                             {SOL_SOCKET, SO_SNDBUF, kSendBufferSize}}) {
        if (setsockopt(descriptor, level, name, &value, sizeof(value)) != 0) {
            return -1;
        }
    }
    return 0;
}

/// Binds an IPv4 socket to a port of all addresses of the device. Returns 0, or -1 with errno.
inline int BindToPort(int descriptor, std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    address.sin_port = htons(port);
    return bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
}
