#include "link/CConnection.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/write.hpp>
#include <utility>

#include "link/LinkError.h"
#include "link/LinkSettings.h"
#include "link/NoThrow.h"

namespace ZELPC {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

namespace {

constexpr std::chrono::seconds kOpenPatience{5};

/// A packet that has begun is whole by then, however slow the network.
constexpr std::chrono::seconds kPacketPatience{30};

/// Packets on their way while more are made, when much is sent.
constexpr std::size_t kPacedQueue = 2;

}  // namespace

CConnection::CConnection(const Strand& strand)
    : socket_(strand),
      ended_(strand, asio::steady_timer::time_point::max()),
      drained_(strand, asio::steady_timer::time_point::max()),
      patience_(strand) {}

asio::awaitable<void> CConnection::Open(asio::ip::address_v4 local, asio::ip::address_v4 analyzer) {
    const auto self = shared_from_this();
    error_code failed;
    socket_.open(tcp::v4(), failed);
    if (!failed && !local.is_unspecified()) {
        socket_.bind({local, 0}, failed);
    }
    if (!failed) {
        CloseAfter(kOpenPatience, "no answer to the connection");
        const auto [error] = co_await socket_.async_connect({analyzer, kAnalyzerTCPPort}, kNoThrow);
        failed = error;
        patience_.cancel();
    }
    if (!failed && open_) {
        socket_.set_option(tcp::no_delay(true), failed);
        socket_.non_blocking(true, failed);
        local_ = socket_.local_endpoint(failed).address().to_v4();
    }
    if (failed || !open_) {
        Close(failed.message());
        throw LinkError(reason_);
    }
}

asio::awaitable<Packet> CConnection::Receive() {
    const auto self = shared_from_this();
    Packet packet;
    bool waiting = false;
    while (open_) {
        const auto space = reader_.Space();
        const auto buffer = asio::buffer(space.data(), space.size());
        error_code error = asio::error::would_block;
        std::size_t size = 0;
        if (reader_.IsInside()) {
            size = socket_.read_some(buffer, error);  // mostly the rest is there already
            if (error == asio::error::would_block && !std::exchange(waiting, true)) {
                CloseAfter(kPacketPatience, "a packet stayed incomplete");
            }
        }
        if (error == asio::error::would_block) {
            const auto [failed, count] = co_await socket_.async_read_some(buffer, kNoThrow);
            error = failed;
            size = count;
        }
        if (error) {
            Close(error == asio::error::eof ? "the analyzer closed the connection" : error.message());
        }
        if (!open_) {
            break;
        }
        const CPacketReader::State state = reader_.Take(size, packet);
        if (state == CPacketReader::State::kPacket) {
            patience_.cancel();
            co_return packet;
        }
        if (state == CPacketReader::State::kBroken) {
            Close("what came is no packet of an analyzer");
            break;
        }
    }
    throw LinkError(reason_);
}

void CConnection::Send(Buffer packet) {
    if (!open_) {
        return;
    }
    if (queue_.size() >= kMostQueued) {
        Close("the analyzer takes nothing any more");
        return;
    }
    if (!writing_ && SentAtOnce(packet)) {
        return;
    }
    queue_.push_back(std::move(packet));
    if (!writing_) {
        writing_ = true;
        asio::co_spawn(
            socket_.get_executor(), [self = shared_from_this()] { return self->Write(); }, asio::detached);
    }
}

/// What the system takes whole goes without waiting for a turn. Of what it takes in part, the rest is left in `packet`.
bool CConnection::SentAtOnce(Buffer& packet) {
    error_code error;
    const std::size_t sent = socket_.send(asio::buffer(packet), 0, error);
    packet.erase(packet.begin(), packet.begin() + static_cast<std::ptrdiff_t>(sent));
    if (error && error != asio::error::would_block) {
        Close(error.message());
    }
    return error ? !open_ : packet.empty();
}

asio::awaitable<void> CConnection::SendPaced(Buffer packet) {
    const auto self = shared_from_this();
    Send(std::move(packet));
    while (open_ && queue_.size() > kPacedQueue) {
        co_await drained_.async_wait(kNoThrow);
    }
    if (!open_) {
        throw LinkError(reason_);
    }
}

asio::awaitable<void> CConnection::Flush() {
    const auto self = shared_from_this();
    while (open_ && writing_) {
        co_await drained_.async_wait(kNoThrow);
    }
}

asio::awaitable<void> CConnection::Write() {
    while (open_ && !queue_.empty()) {
        const Buffer packet = std::move(queue_.front());
        queue_.pop_front();
        const auto [error, size] = co_await asio::async_write(socket_, asio::buffer(packet), kNoThrow);
        drained_.cancel();
        if (error) {
            Close(error.message());
        }
    }
    writing_ = false;
    drained_.cancel();
}

void CConnection::Close(const std::string& reason) {
    if (!open_) {
        return;
    }
    open_ = false;
    reason_ = reason;
    error_code ignored;
    socket_.shutdown(tcp::socket::shutdown_both, ignored);
    socket_.close(ignored);
    queue_.clear();
    ended_.cancel();
    drained_.cancel();
    patience_.cancel();
}

asio::awaitable<std::string> CConnection::Ended() {
    const auto self = shared_from_this();
    while (open_) {
        co_await ended_.async_wait(kNoThrow);
    }
    co_return reason_;
}

void CConnection::CloseAfter(std::chrono::milliseconds time, const char* reason) {
    patience_.expires_after(time);
    patience_.async_wait([weak = weak_from_this(), reason](error_code error) {
        const auto self = weak.lock();
        if (!error && self != nullptr) {
            self->Close(reason);
        }
    });
}

}  // namespace ZELPC
