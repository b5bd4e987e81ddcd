#pragma once

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/beast/core/error.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/ssl/ssl_stream.hpp>
#include <chrono>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "deliver/DestinationOptions.h"

namespace ZELPC {

namespace asio = boost::asio;
namespace beast = boost::beast;

/// A connection to a destination, with or without TLS; every operation ends by a time limit.
class CStream {
public:
    using Error = boost::system::error_code;
    static constexpr auto kTimeout = beast::error::timeout;

    explicit CStream(asio::any_io_executor executor) : plain_(std::move(executor)) {}
    ~CStream();
    CStream(const CStream&) = delete;
    CStream& operator=(const CStream&) = delete;

    /// Connects within the options' limit; returns why not, or the empty text.
    asio::awaitable<std::string> Connect(const DestinationOptions& options);
    /// Sets the limit for all reading and writing from now on.
    void ExpiresAfter(std::chrono::milliseconds limit) { Lowest().expires_after(limit); }
    asio::awaitable<Error> Write(std::string_view bytes);
    asio::awaitable<std::pair<Error, std::size_t>> ReadSome(std::span<char> bytes);
    /// Until the next Write or ReadSome nothing that comes wakes a thread: the calls below are what looks for it.
    /// Nothing may be under way. Without meaning for TLS.
    void LeaveReactor();
    /// How much of it the system takes without waiting; of TLS nothing. An error shows at the next Write or ReadSome.
    std::size_t WriteAtOnce(std::string_view bytes);
    /// Reads what comes within `patience`, on this thread; 0: nothing came, or it is for ReadSome to say. Not for TLS.
    std::size_t ReadAtOnce(std::span<char> bytes, std::chrono::microseconds patience);
    /// Whether something can be read, or the peer has closed.
    bool HasInput();
    /// Makes what is under way fail.
    void Cancel();

private:
    asio::awaitable<std::string> ShakeHands(const DestinationOptions& options);
    beast::tcp_stream& Lowest() { return tls_ ? beast::get_lowest_layer(*tls_) : plain_; }
    int Descriptor() { return aside_ >= 0 ? aside_ : Lowest().socket().native_handle(); }
    void JoinReactor();

    beast::tcp_stream plain_;
    asio::ip::tcp protocol_ = asio::ip::tcp::v4();
    int aside_ = -1;  // the descriptor, owned, while the reactor does not know it
    std::unique_ptr<asio::ssl::context> context_;
    std::optional<beast::ssl_stream<beast::tcp_stream>> tls_;
};

}  // namespace ZELPC
