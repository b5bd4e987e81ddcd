#pragma once

#include <array>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/udp.hpp>
#include <boost/asio/strand.hpp>
#include <functional>
#include <memory>
#include <unordered_map>
#include <vector>

#include "link/IDatagramReceiver.h"
#include "link/LinkSettings.h"
#include "packet/Packet.h"

namespace ZELPC {

/// The one UDP socket of a process: sends scans, signs of life and acknowledgements, and tells receivers what comes.
///
/// An answer to a sign of life names no analyzer. It is known by its sender's address and, when an analyzer answers
/// from another one, by the tag. A notice of a change of address is followed by a scan of the new address, so that
/// receivers learn from the serial number whose it is; it is acknowledged when one of them is.
///
/// Everything runs on its own strand; any thread may call.
class CDatagramPort : public std::enable_shared_from_this<CDatagramPort> {
public:
    using Address = boost::asio::ip::address_v4;
    using ScanListener = std::function<void(const ScanAnswer&)>;

    /// Opens and binds the socket. Throws LinkError.
    CDatagramPort(boost::asio::io_context& context, HubSettings settings);

    void Start();
    void Close();

    const HubSettings& Settings() const { return settings_; }
    boost::asio::io_context& Context() const { return context_; }

    /// What analyzers are told to answer to.
    std::uint16_t Port() const { return port_; }

    /// The address under which an analyzer there knows this PC.
    [[nodiscard]] Address LocalAddress(Address analyzer) const;

    /// Tells `receiver` from now on what concerns the analyzer of this address and serial number; either may be unknown
    /// (any, empty). Calling it again replaces both. A receiver that is gone is forgotten.
    void Attach(const std::shared_ptr<IDatagramReceiver>& receiver, Address address, std::string serial);

    void SendSignOfLife(const std::shared_ptr<IDatagramReceiver>& receiver, Address analyzer);

    /// Asks one address.
    void SendScan(Address target);

    /// Asks the addresses to search at, or every interface's network.
    void SendSearch();

    /// See CLinkHub::Scan.
    [[nodiscard]] boost::asio::awaitable<void> Scan(std::vector<Address> targets, std::chrono::milliseconds duration,
                                                    ScanListener found);

private:
    struct Member {
        std::weak_ptr<IDatagramReceiver> receiver;
        Address address;
        std::string serial;
    };

    boost::asio::awaitable<void> Receive();
    void Dispatch(std::span<const std::uint8_t> datagram, const boost::asio::ip::udp::endpoint& from);
    void TakeScanAnswer(const ScanAnswer& answer, Address from);
    void TakeNotice(const Packet& notice, const boost::asio::ip::udp::endpoint& from);
    void TakeAlive(std::uint8_t tag, Address from);
    bool Send(Address target, const Buffer& packet);
    bool ScanNow(Address target);
    bool SearchNow();
    std::uint8_t NextTag();

    boost::asio::io_context& context_;
    const HubSettings settings_;
    boost::asio::strand<boost::asio::io_context::executor_type> strand_;
    boost::asio::ip::udp::socket socket_;
    std::uint16_t port_ = 0;
    std::uint8_t tag_ = 0;
    std::array<std::weak_ptr<IDatagramReceiver>, 256> askedByTag_;
    std::unordered_map<const IDatagramReceiver*, Member> members_;
    std::vector<std::weak_ptr<const ScanListener>> scans_;
    std::unordered_map<Address::uint_type, Packet> movedNotices_;
};

}  // namespace ZELPC
