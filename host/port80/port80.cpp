// Loaded before a simulated analyzer's service where port 80 may not be had: takes what goes to port 80 of the loopback
// interface to the port that the environment variable ZEL_PORT_80 names.

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

extern "C" int connect(int socket, const sockaddr* address, socklen_t length) {
    constexpr std::uint16_t kHttpPort = 80;
    sockaddr_in target{};
    const char* port = std::getenv("ZEL_PORT_80");
    if (port != nullptr && length == sizeof target && address->sa_family == AF_INET) {
        std::memcpy(&target, address, sizeof target);
        const bool isLoopback = ntohl(target.sin_addr.s_addr) >> 24 == IN_LOOPBACKNET;
        if (isLoopback && ntohs(target.sin_port) == kHttpPort) {
            target.sin_port = htons(static_cast<std::uint16_t>(std::atoi(port)));
            address = reinterpret_cast<const sockaddr*>(&target);
        }
    }
    return static_cast<int>(syscall(SYS_connect, socket, address, length));
}
