#include "net/SocketSetup.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <cstring>
#include <initializer_list>

namespace RMUP::Net {

int SetSocketTimeout(int descriptor, int option, int seconds) {
    const timeval timeout{seconds, 0};
    return setsockopt(descriptor, SOL_SOCKET, option, &timeout, sizeof(timeout));
}

void SetSocketTimeout(int descriptor, int option, int seconds, const CTaggedLog& log, const char* failure) {
    if (SetSocketTimeout(descriptor, option, seconds) == 0) {
        const char* const name = option == SO_SNDTIMEO ? "SNDTIMEO" : "RCVTIMEO";
        log.WriteInfo("Set socket option - %s(%ds)", name, seconds);
    } else {
        log.WriteError("%s: %s", failure, strerror(errno));
    }
}

int SetConnectionLimits(int descriptor) {
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

int BindToPort(int descriptor, std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    address.sin_port = htons(port);
    return bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
}

}  // namespace RMUP::Net
