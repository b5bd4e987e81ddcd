#include "Mllp.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <array>
#include <chrono>

namespace {

constexpr std::string_view kEnd = "\x1C\r";

std::span<const std::uint8_t> BytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

/// Reads up to the end of a frame; empty when the connection ended. One message is on its way at a time.
std::string_view ReadFrame(const CSocket& connection, std::string& buffer) {
    std::array<char, 16384> piece;
    buffer.clear();
    while (!buffer.ends_with(kEnd)) {
        const ssize_t count = recv(connection.Get(), piece.data(), piece.size(), 0);
        if (count <= 0) {
            return {};
        }
        buffer.append(piece.data(), static_cast<std::size_t>(count));
    }
    return buffer;
}

/// The tenth field of the header.
std::string_view NumberOf(std::string_view frame) {
    std::size_t at = 0;
    for (int field = 0; field < 9; ++field) {
        at = frame.find('|', at) + 1;
    }
    return frame.substr(at, frame.find('|', at) - at);
}

}  // namespace

std::string Mllp::Frame(std::string_view message) {
    return std::string("\x0B").append(message).append(kEnd);
}

double Mllp::Receive(const CSocket& listener, std::int64_t count) {
    std::chrono::steady_clock::time_point start;
    std::string buffer;
    for (std::int64_t taken = 0; taken < count;) {
        const CSocket connection(accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC), "accept");
        const int on = 1;
        setsockopt(connection.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
        for (; taken < count && !ReadFrame(connection, buffer).empty(); ++taken) {
            if (taken == 0) {
                start = std::chrono::steady_clock::now();
            }
            std::string answer = "MSH|^~\\&|LIS||||20261121||ACK|1|P|2.5.1\rMSA|AA|";
            answer.append(NumberOf(buffer)).append("\r");
            connection.Write(BytesOf(Frame(answer)));
        }
    }
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void Mllp::Send(const CSocket& connection, std::string_view frame, std::int64_t count) {
    std::string answer;
    for (; count > 0; --count) {
        connection.Write(BytesOf(frame));
        if (ReadFrame(connection, answer).empty()) {
            Give("the receiver closed the connection");
        }
    }
}
