#pragma once

#include <boost/asio/awaitable.hpp>
#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>

#include "link/CConnection.h"
#include "link/CDatagramPort.h"
#include "link/CReceivedResult.h"
#include "link/LinkStatus.h"
#include "packet/DeviceInfo.h"
#include "wire/PCCommand.h"

namespace ZELPC {

/// What is left to whoever uses a session. Called on its strand.
struct SessionHandlers {
    std::function<void(std::shared_ptr<CReceivedResult>)> result;  ///< none: results are not taken
    std::function<void(const Packet&)> update;                     ///< a packet that belongs to an update
};

/// How many results of one analyzer are alive, over all its connections. Used on the link's strand.
struct ResultSlots {
    explicit ResultSlots(const Strand& strand);

    int used = 0;
    boost::asio::steady_timer freed;  ///< never expires; cancelled when one was freed
};

/// The protocol over one connection: requests and their answers, results and their acknowledgements, signs of life.
/// Used on its strand only, but for nothing.
class CLinkSession : public std::enable_shared_from_this<CLinkSession> {
public:
    CLinkSession(const Strand& strand, std::shared_ptr<CDatagramPort> port, std::shared_ptr<ResultSlots> slots,
                 SessionHandlers handlers);

    /// Connects, and reads from then on. Throws LinkError.
    [[nodiscard]] boost::asio::awaitable<void> Open(boost::asio::ip::address_v4 analyzer, const std::string& serial);

    /// Throws LinkError without an answer in time.
    [[nodiscard]] boost::asio::awaitable<DeviceInfo> GetInfo(std::uint16_t items);

    /// Refusal::kNone when this PC is the registered one now. Throws LinkError when the connection ended.
    [[nodiscard]] boost::asio::awaitable<Refusal> Register(const std::string& password);

    /// Throws LinkError without an answer in time; the analyzer does not answer one that it does not know.
    [[nodiscard]] boost::asio::awaitable<void> Unregister();

    /// Tells the analyzer from now on that this PC lives, and ends the session when it does not answer that any more.
    /// Repeating it does nothing.
    void KeepAlive(std::shared_ptr<IDatagramReceiver> receiver);

    /// The analyzer answered a sign of life.
    void OnAlive();

    /// Waits for the first such answer. Throws LinkError when the connection ended before.
    [[nodiscard]] boost::asio::awaitable<void> Answered();

    /// See CConnection.
    void Send(const Wire::PCPacketKind& kind, std::span<const std::uint8_t> payload = {});
    void Send(Buffer packet) { connection_->Send(std::move(packet)); }
    [[nodiscard]] boost::asio::awaitable<void> SendPaced(Buffer packet);
    [[nodiscard]] boost::asio::awaitable<void> Flush();
    [[nodiscard]] boost::asio::awaitable<std::string> Ended();
    void Close(const std::string& reason);
    bool IsOpen() const { return connection_->IsOpen(); }

    boost::asio::ip::address_v4 LocalAddress() const { return connection_->LocalAddress(); }
    char PeerID() const { return port_->Settings().peerID; }

private:
    using Clock = std::chrono::steady_clock;

    /// Somebody who waits for the answer to a request of this tag.
    struct Waiter {
        std::uint8_t tag;
        PCCommand command;
        boost::asio::steady_timer timer;
        std::optional<Packet> answer;
    };

    boost::asio::awaitable<void> Read();
    void Dispatch(Packet packet);
    boost::asio::awaitable<std::optional<Packet>> Call(const Buffer& request, PCCommand answer);
    void Answer(Packet packet);
    boost::asio::awaitable<void> WaitForSlot();
    void TakeResult(Packet packet);
    void SendAcknowledgement(unsigned number, std::uint8_t tag);
    boost::asio::awaitable<void> SendSignsOfLife(std::shared_ptr<IDatagramReceiver> receiver);
    std::uint8_t NextTag();

    const Strand strand_;
    const std::shared_ptr<CDatagramPort> port_;
    const std::shared_ptr<ResultSlots> slots_;
    SessionHandlers handlers_;
    const std::shared_ptr<CConnection> connection_;
    boost::asio::ip::address_v4 analyzer_;
    std::string serial_;
    std::list<Waiter*> waiters_;
    std::uint8_t tag_;
    Clock::time_point alive_;
    bool keptAlive_ = false;
    bool answered_ = false;
    boost::asio::steady_timer signTimer_;
    boost::asio::steady_timer answer_;  ///< never expires; cancelled when a sign of life is first answered
    Clock::duration held_{};            ///< how long nothing was read before the packet at hand
    unsigned results_ = 0;
    std::weak_ptr<CReceivedResult> latest_;
};

}  // namespace ZELPC
