#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>
#include <deque>
#include <memory>
#include <string>

#include "packet/CPacketReader.h"
#include "packet/Packet.h"

namespace ZELPC {

using Strand = boost::asio::strand<boost::asio::io_context::executor_type>;

/// One TCP connection to an analyzer, from its opening to its end. What ends it first is its reason.
///
/// Used on its strand only, but for nothing. Memory: the packet that is being received, and at most kMostQueued to be
/// sent; an analyzer that takes none of them loses the connection.
class CConnection : public std::enable_shared_from_this<CConnection> {
public:
    static constexpr std::size_t kMostQueued = 64;

    explicit CConnection(const Strand& strand);

    /// Connects from `local`, or from where the system likes when that is any. Throws LinkError.
    [[nodiscard]] boost::asio::awaitable<void> Open(boost::asio::ip::address_v4 local,
                                                    boost::asio::ip::address_v4 analyzer);

    /// The next packet. Throws LinkError when the connection ended. One call at a time.
    [[nodiscard]] boost::asio::awaitable<Packet> Receive();

    /// Hands a packet over for sending, behind those before it. On a closed connection nothing happens.
    void Send(Buffer packet);

    /// As Send, and waits until few are queued, so that whoever sends much goes at the connection's pace. Throws
    /// LinkError when the connection ended.
    [[nodiscard]] boost::asio::awaitable<void> SendPaced(Buffer packet);

    /// Waits until what was handed over is with the system, which sends it even if the connection is closed then.
    [[nodiscard]] boost::asio::awaitable<void> Flush();

    /// Ends it; the first reason stays. Repeating it does nothing.
    void Close(const std::string& reason);

    /// Waits for the end and tells its reason.
    [[nodiscard]] boost::asio::awaitable<std::string> Ended();

    bool IsOpen() const { return open_; }

    /// This side's address, as the analyzer knows it; any before it is open.
    boost::asio::ip::address_v4 LocalAddress() const { return local_; }

private:
    boost::asio::awaitable<void> Write();
    bool SentAtOnce(Buffer& packet);
    void CloseAfter(std::chrono::milliseconds time, const char* reason);

    boost::asio::ip::tcp::socket socket_;
    boost::asio::steady_timer ended_;     ///< never expires; cancelled at the end
    boost::asio::steady_timer drained_;   ///< likewise, whenever the queue got shorter
    boost::asio::steady_timer patience_;  ///< for opening, and for a packet that has begun
    boost::asio::ip::address_v4 local_;
    CPacketReader reader_;
    std::deque<Buffer> queue_;
    std::string reason_;
    bool open_ = true;
    bool writing_ = false;
};

}  // namespace ZELPC
