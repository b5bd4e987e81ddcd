/// Sends each datagram back to where it came from: `zelrm_udp_echo ADDRESS PORT`. The least that a scan could cost.

#include <arpa/inet.h>
#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <iostream>

int main(int count, char** arguments) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(count == 3 ? std::atoi(arguments[2]) : 0));
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (count != 3 || inet_pton(AF_INET, arguments[1], &address.sin_addr) != 1 || descriptor < 0 ||
        bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        std::cerr << "usage: zelrm_udp_echo ADDRESS PORT, both free\n";
        return 1;
    }
    std::cout << "ready" << std::endl;
    std::array<char, 2048> buffer{};
    for (;;) {
        sockaddr_in peer{};
        socklen_t size = sizeof(peer);
        const ssize_t length =
            recvfrom(descriptor, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&peer), &size);
        if (length < 0 || sendto(descriptor, buffer.data(), static_cast<std::size_t>(length), 0,
                                 reinterpret_cast<const sockaddr*>(&peer), size) < 0) {
            return 1;
        }
    }
}
