#include "link/Interfaces.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <memory>

namespace ZELPC {

namespace {

using boost::asio::ip::address_v4;

address_v4 AddressOf(const sockaddr* address) {
    sockaddr_in inet{};
    std::memcpy(&inet, address, sizeof inet);
    return address_v4(ntohl(inet.sin_addr.s_addr));
}

}  // namespace

std::vector<Interface> BroadcastInterfaces() {
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) {
        return {};
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, freeifaddrs);
    std::vector<Interface> found;
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        constexpr unsigned kNeeded = IFF_UP | IFF_BROADCAST;
        if (entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_INET &&
            (entry->ifa_flags & kNeeded) == kNeeded && entry->ifa_broadaddr != nullptr) {
            found.push_back({AddressOf(entry->ifa_addr), AddressOf(entry->ifa_broadaddr)});
        }
    }
    return found;
}

address_v4 LocalAddressTowards(address_v4 target) {
    // Connecting a datagram socket sends nothing; it only looks the route up.
    constexpr std::uint16_t kAnyPort = 9;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(kAnyPort);
    address.sin_addr.s_addr = htonl(target.to_uint());
    sockaddr generic{};
    std::memcpy(&generic, &address, sizeof address);
    socklen_t size = sizeof generic;

    const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (socket < 0) {
        return {};
    }
    const bool found = connect(socket, &generic, sizeof generic) == 0 && getsockname(socket, &generic, &size) == 0;
    close(socket);
    return found ? AddressOf(&generic) : address_v4();
}

}  // namespace ZELPC
