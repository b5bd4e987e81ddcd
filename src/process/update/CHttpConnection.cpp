#include "process/update/CHttpConnection.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

namespace RMUP::Process {

namespace {

/// How long a silent server is waited for.
constexpr std::chrono::milliseconds kSilence{5000};

}  // namespace

bool CHttpConnection::Send(const std::string& request) {
    // A server that has closed must not end the process by a signal.
    const ssize_t sent = send(socket_.Get(), request.data(), request.size(), MSG_NOSIGNAL);
    return sent == static_cast<ssize_t>(request.size());
}

ssize_t CHttpConnection::Fill(std::span<std::uint8_t> buffer) {
    ssize_t count = -1;
    do {
        const auto begun = std::chrono::steady_clock::now();
        if (!WaitReadable()) {
            return -1;
        }
        count = recv(socket_.Get(), buffer.data(), buffer.size(), 0);
        limit_.Count(std::chrono::steady_clock::now() - begun, count > 0 ? static_cast<std::size_t>(count) : 0);
    } while (count < 0 && errno == EINTR);
    return count;
}

bool CHttpConnection::WaitReadable() {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(limit_.Left());
    if (left.count() <= 0) {
        errno = ETIMEDOUT;
        return false;
    }
    pollfd readable{socket_.Get(), POLLIN, 0};
    const int ready = poll(&readable, 1, static_cast<int>(std::min(left, kSilence).count()));
    if (ready == 0) {
        errno = left < kSilence ? ETIMEDOUT : EAGAIN;
    }
    // An interrupted wait is told by the receiving that follows.
    return ready > 0 || (ready < 0 && errno == EINTR);
}

}  // namespace RMUP::Process
