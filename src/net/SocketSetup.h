#pragma once

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cstdint>

/// Sets SO_SNDTIMEO or SO_RCVTIMEO. Returns 0, or -1 with errno.
inline int SetSocketTimeout(int descriptor, int option, int seconds) {
    const timeval timeout{seconds, 0};
    return setsockopt(descriptor, SOL_SOCKET, option, &timeout, sizeof(timeout));
}

/// Binds an IPv4 socket to a port of all addresses of the device. Returns 0, or -1 with errno.
inline int BindToPort(int descriptor, std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    address.sin_port = htons(port);
    return bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
}
