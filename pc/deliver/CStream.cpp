#include "deliver/CStream.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/ssl/host_name_verification.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>
#include <cerrno>

namespace ZELPC {

namespace {

constexpr auto kAsTuple = asio::as_tuple(asio::use_awaitable);

/// Throws boost::system::system_error, with the file in its text.
std::unique_ptr<asio::ssl::context> MakeContext(const DestinationOptions& options) {
    auto context = std::make_unique<asio::ssl::context>(asio::ssl::context::tls_client);
    context->set_options(asio::ssl::context::no_tlsv1 | asio::ssl::context::no_tlsv1_1);
    context->set_verify_mode(asio::ssl::verify_peer);
    context->set_verify_callback(asio::ssl::host_name_verification(options.host));
    if (options.caFile.empty()) {
        context->set_default_verify_paths();
    } else {
        context->load_verify_file(options.caFile);
    }
    if (!options.certificateFile.empty()) {
        context->use_certificate_chain_file(options.certificateFile);
        context->use_private_key_file(options.keyFile, asio::ssl::context::pem);
    }
    return context;
}

}  // namespace

CStream::~CStream() {
    if (aside_ >= 0) {
        ::close(aside_);
    }
}

asio::awaitable<std::string> CStream::Connect(const DestinationOptions& options) {
    const std::string where = options.host + ":" + options.port;
    asio::ip::tcp::resolver resolver(plain_.get_executor());
    const auto [unknown, addresses] = co_await resolver.async_resolve(options.host, options.port, kAsTuple);
    if (unknown) {
        co_return where + ": " + unknown.message();
    }
    plain_.expires_after(options.connectTimeout);
    const auto [refused, endpoint] = co_await plain_.async_connect(addresses, kAsTuple);
    if (refused) {
        co_return where + ": " + (refused == kTimeout ? "no connection in time" : refused.message());
    }
    protocol_ = endpoint.protocol();
    Error ignored;
    plain_.socket().set_option(asio::ip::tcp::no_delay(true), ignored);
    plain_.socket().set_option(asio::socket_base::keep_alive(true), ignored);
    if (!options.tls) {
        co_return std::string();
    }
    const std::string failed = co_await ShakeHands(options);
    co_return failed.empty() ? failed : where + ": TLS: " + failed;
}

asio::awaitable<std::string> CStream::ShakeHands(const DestinationOptions& options) {
    try {
        context_ = MakeContext(options);
    } catch (const std::exception& error) {
        co_return error.what();
    }
    tls_.emplace(std::move(plain_), *context_);
    SSL_set_tlsext_host_name(tls_->native_handle(), options.host.c_str());
    const auto [error] = co_await tls_->async_handshake(asio::ssl::stream_base::client, kAsTuple);
    co_return error ? error.message() : std::string();
}

void CStream::LeaveReactor() {
    if (!tls_ && aside_ < 0) {
        Error error;
        aside_ = plain_.socket().release(error);
    }
}

/// When the reactor cannot take it, what follows fails as on a connection that is broken.
void CStream::JoinReactor() {
    if (aside_ >= 0) {
        Error error;
        plain_.socket().assign(protocol_, aside_, error);
        aside_ = error ? aside_ : -1;
    }
}

asio::awaitable<CStream::Error> CStream::Write(std::string_view bytes) {
    JoinReactor();
    const asio::const_buffer buffer(bytes.data(), bytes.size());
    if (tls_) {
        const auto [error, size] = co_await asio::async_write(*tls_, buffer, kAsTuple);
        co_return error;
    }
    const auto [error, size] = co_await asio::async_write(plain_, buffer, kAsTuple);
    co_return error;
}

asio::awaitable<std::pair<CStream::Error, std::size_t>> CStream::ReadSome(std::span<char> bytes) {
    JoinReactor();
    const asio::mutable_buffer buffer(bytes.data(), bytes.size());
    if (tls_) {
        const auto [error, size] = co_await tls_->async_read_some(buffer, kAsTuple);
        co_return std::pair(error, size);
    }
    const auto [error, size] = co_await plain_.async_read_some(buffer, kAsTuple);
    co_return std::pair(error, size);
}

std::size_t CStream::WriteAtOnce(std::string_view bytes) {
    const ssize_t sent = tls_ ? 0 : ::send(Descriptor(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    return sent > 0 ? static_cast<std::size_t>(sent) : 0;
}

std::size_t CStream::ReadAtOnce(std::span<char> bytes, std::chrono::microseconds patience) {
    pollfd one{Descriptor(), POLLIN, 0};
    const timespec limit{0, std::chrono::nanoseconds(patience).count()};
    if (tls_ || ::ppoll(&one, 1, &limit, nullptr) != 1) {
        return 0;
    }
    const ssize_t size = ::recv(one.fd, bytes.data(), bytes.size(), MSG_DONTWAIT);
    return size > 0 ? static_cast<std::size_t>(size) : 0;
}

bool CStream::HasInput() {
    char byte = 0;
    const ssize_t size = ::recv(Descriptor(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    // TLS sends records of its own; only an end says something there.
    return size > 0 ? !tls_ : size == 0 || errno != EAGAIN;
}

void CStream::Cancel() {
    if (aside_ >= 0) {
        ::shutdown(aside_, SHUT_RDWR);
    } else {
        Lowest().close();
    }
}

}  // namespace ZELPC
