#include "CSocket.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstdlib>

namespace {

sockaddr_in EndpointOf(std::uint32_t address, std::uint16_t port) {
    sockaddr_in endpoint{};
    endpoint.sin_family = AF_INET;
    endpoint.sin_port = htons(port);
    endpoint.sin_addr.s_addr = htonl(address);
    return endpoint;
}

void Enable(int descriptor, int level, int option) {
    const int on = 1;
    if (setsockopt(descriptor, level, option, &on, sizeof(on)) != 0) {
        Give("option");
    }
}

}  // namespace

void Give(const char* what) {
    std::perror(what);
    std::exit(1);
}

CSocket::CSocket(int descriptor, const char* what) : descriptor_(descriptor) {
    if (descriptor < 0) {
        Give(what);
    }
}

CSocket CSocket::Bound(int kind, std::uint32_t address, std::uint16_t port) {
    CSocket made(socket(AF_INET, kind | SOCK_CLOEXEC, 0), "socket");
    Enable(made.Get(), SOL_SOCKET, SO_REUSEADDR);
    const sockaddr_in endpoint = EndpointOf(address, port);
    if (bind(made.Get(), reinterpret_cast<const sockaddr*>(&endpoint), sizeof(endpoint)) != 0 ||
        (kind == SOCK_STREAM && listen(made.Get(), SOMAXCONN) != 0)) {
        Give("bind");
    }
    return made;
}

CSocket CSocket::Connected(std::uint32_t address, std::uint16_t port) {
    CSocket made(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
    const sockaddr_in endpoint = EndpointOf(address, port);
    if (connect(made.Get(), reinterpret_cast<const sockaddr*>(&endpoint), sizeof(endpoint)) != 0) {
        Give("connect");
    }
    Enable(made.Get(), IPPROTO_TCP, TCP_NODELAY);
    return made;
}

void CSocket::Write(std::span<const std::uint8_t> bytes) const {
    while (!bytes.empty()) {
        const ssize_t count = send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count <= 0) {
            Give("send");
        }
        bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
}
