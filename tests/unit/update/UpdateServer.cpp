#include "UpdateServer.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <utility>

namespace UpdateTest {

CUpdateServer::CUpdateServer() : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const int reuse = 1;
    setsockopt(listener_.Get(), SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof(reuse));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(80);
    EXPECT_EQ(bind(listener_.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    EXPECT_EQ(listen(listener_.Get(), 5), 0);
    thread_ = std::thread([this] { Serve(); });
}

CUpdateServer::~CUpdateServer() {
    shutdown(listener_.Get(), SHUT_RDWR);
    thread_.join();
}

void CUpdateServer::Answer(const std::string& path, const std::string& bytes) {
    const std::lock_guard lock(mutex_);
    answers_[path] = bytes;
}

std::vector<std::string> CUpdateServer::TakeRequests() {
    const std::lock_guard lock(mutex_);
    return std::exchange(requests_, {});
}

std::string CUpdateServer::Good(const std::string& body) {
    return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

void CUpdateServer::Serve() {
    for (;;) {
        const CDescriptor client(accept4(listener_.Get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!client.IsOpen()) {
            return;
        }
        ServeOne(client);
    }
}

void CUpdateServer::ServeOne(const CDescriptor& client) {
    std::string request;
    for (char byte = 0; !request.ends_with("\r\n\r\n") && recv(client.Get(), &byte, 1, 0) == 1;) {
        request.push_back(byte);
    }
    std::string answer;
    {
        const std::lock_guard lock(mutex_);
        requests_.push_back(request);
        answer = answers_[request.substr(4, request.find(' ', 4) - 4)];
    }
    for (std::size_t sent = 0; sent < answer.size();) {
        const ssize_t count = send(client.Get(), answer.data() + sent, answer.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) {
            return;
        }
        sent += static_cast<std::size_t>(count);
    }
}

}  // namespace UpdateTest
