#include "link/CDatagramPort.h"

#include <algorithm>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/dispatch.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>

#include "link/Interfaces.h"
#include "link/LinkError.h"
#include "link/NoThrow.h"
#include "packet/Requests.h"
#include "wire/Bytes.h"
#include "wire/PCCommand.h"

namespace ZELPC {

namespace asio = boost::asio;
using asio::ip::udp;
using boost::system::error_code;

namespace {

/// The longest datagram that an analyzer sends is far below this.
constexpr std::size_t kDatagramSize = 4096;

constexpr std::size_t kMostMovedNotices = 16;
constexpr int kScanRounds = 3;
constexpr std::chrono::milliseconds kErrorPause{100};

}  // namespace

CDatagramPort::CDatagramPort(asio::io_context& context, HubSettings settings)
    : context_(context), settings_(std::move(settings)), strand_(asio::make_strand(context)), socket_(strand_) {
    try {
        const udp::endpoint local(settings_.localAddress, settings_.udpPort);
        socket_.open(udp::v4());
        socket_.set_option(asio::socket_base::broadcast(true));
        socket_.bind(local);
        socket_.non_blocking(true);
        port_ = socket_.local_endpoint().port();
    } catch (const boost::system::system_error& error) {
        throw LinkError("UDP port " + std::to_string(settings_.udpPort) + " of " + settings_.localAddress.to_string() +
                        " cannot be used: " + error.code().message());
    }
}

void CDatagramPort::Start() {
    asio::co_spawn(
        strand_, [self = shared_from_this()] { return self->Receive(); }, asio::detached);
}

void CDatagramPort::Close() {
    asio::dispatch(strand_, [self = shared_from_this()] {
        error_code ignored;
        self->socket_.close(ignored);
    });
}

CDatagramPort::Address CDatagramPort::LocalAddress(Address analyzer) const {
    return settings_.localAddress.is_unspecified() ? LocalAddressTowards(analyzer) : settings_.localAddress;
}

void CDatagramPort::Attach(const std::shared_ptr<IDatagramReceiver>& receiver, Address address, std::string serial) {
    asio::post(strand_, [self = shared_from_this(), receiver, address, serial = std::move(serial)]() mutable {
        std::erase_if(self->members_, [](const auto& member) { return member.second.receiver.expired(); });
        self->members_[receiver.get()] = Member{receiver, address, std::move(serial)};
    });
}

void CDatagramPort::SendSignOfLife(const std::shared_ptr<IDatagramReceiver>& receiver, Address analyzer) {
    asio::dispatch(strand_, [self = shared_from_this(), receiver, analyzer] {
        const std::uint8_t tag = self->NextTag();
        self->askedByTag_[tag] = receiver;
        self->Send(analyzer, SignOfLife(tag, self->settings_.peerID));
    });
}

void CDatagramPort::SendScan(Address target) {
    asio::dispatch(strand_, [self = shared_from_this(), target] { self->ScanNow(target); });
}

void CDatagramPort::SendSearch() {
    asio::dispatch(strand_, [self = shared_from_this()] { self->SearchNow(); });
}

asio::awaitable<void> CDatagramPort::Scan(std::vector<Address> targets, std::chrono::milliseconds duration,
                                          ScanListener found) {
    // Forgotten when this coroutine ends, however it ends.
    const auto listener = std::make_shared<const ScanListener>(std::move(found));
    const auto scan = [self = shared_from_this(), listener, targets, duration]() -> asio::awaitable<void> {
        self->scans_.push_back(listener);
        asio::steady_timer timer(self->strand_);
        bool sent = false;
        for (int round = 0; round < kScanRounds && self->socket_.is_open(); ++round) {
            if (targets.empty()) {
                sent = self->SearchNow() || sent;
            }
            for (const Address& target : targets) {
                sent = self->ScanNow(target) || sent;
            }
            timer.expires_after(duration / kScanRounds);
            co_await timer.async_wait(kNoThrow);
        }
        if (!sent) {
            throw LinkError("no scan could be sent: there is no network to ask");
        }
    };
    co_await asio::co_spawn(strand_, scan, asio::use_awaitable);
}

asio::awaitable<void> CDatagramPort::Receive() {
    Buffer datagram(kDatagramSize);
    asio::steady_timer pause(strand_);
    while (socket_.is_open()) {
        udp::endpoint from;
        const auto [error, size] = co_await socket_.async_receive_from(asio::buffer(datagram), from, kNoThrow);
        if (error == asio::error::operation_aborted) {
            break;
        }
        if (error) {
            pause.expires_after(kErrorPause);
            co_await pause.async_wait(kNoThrow);
            continue;
        }
        Dispatch(std::span(datagram).first(size), from);
    }
}

void CDatagramPort::Dispatch(std::span<const std::uint8_t> datagram, const udp::endpoint& from) {
    if (datagram.size() < Wire::kPCHeaderSize) {
        return;
    }
    const Wire::PCHeader header = Wire::ParsePCHeader(datagram.first<Wire::kPCHeaderSize>());
    if (header.total != datagram.size()) {
        return;
    }
    const auto payload = datagram.subspan(Wire::kPCHeaderSize);
    switch (header.command) {
        case PCCommand::kScanDeviceResponse:
            if (const auto answer = ParseScanAnswer(datagram)) {
                TakeScanAnswer(*answer, from.address().to_v4());
            }
            break;
        case PCCommand::kDeviceInfoChange:
            TakeNotice({header, Buffer(payload.begin(), payload.end())}, from);
            break;
        case PCCommand::kDeviceInfoChangeAck:
            TakeAlive(header.tag, from.address().to_v4());
            break;
        default:
            break;
    }
}

void CDatagramPort::TakeScanAnswer(const ScanAnswer& answer, Address from) {
    std::erase_if(scans_, [](const auto& scan) { return scan.expired(); });
    for (const auto& scan : scans_) {
        if (const auto listener = scan.lock()) {
            (*listener)(answer);
        }
    }
    const Address told(answer.address);
    bool known = false;
    for (const auto& [key, member] : members_) {
        const bool named = !member.serial.empty() && member.serial == answer.serial;
        const bool placed = member.serial.empty() && (member.address == from || member.address == told);
        if (const auto receiver = named || placed ? member.receiver.lock() : nullptr) {
            known = known || named;
            receiver->OnScanAnswer(answer, from);
        }
    }
    const auto notice = movedNotices_.find(answer.address);
    if (known && notice != movedNotices_.end()) {
        const Wire::PCHeader& header = notice->second.header;
        Send(told,
             MakePacket({.command = PCCommand::kDeviceInfoChangeAck, .tag = header.tag, .subTag = header.subTag}));
        movedNotices_.erase(notice);
    }
}

void CDatagramPort::TakeNotice(const Packet& notice, const udp::endpoint& from) {
    constexpr std::size_t kMaskSize = 2;
    constexpr std::size_t kAddressSize = 4;
    if (notice.payload.size() < kMaskSize) {
        return;
    }
    const std::uint16_t mask = Bytes::GetBE16(notice.payload, 0);
    if (mask == kItemDeviceAddress && notice.payload.size() >= kMaskSize + kAddressSize) {
        const Address moved(Bytes::GetBE32(notice.payload, kMaskSize));
        if (movedNotices_.size() >= kMostMovedNotices) {
            movedNotices_.clear();
        }
        movedNotices_[moved.to_uint()] = {notice.header, {}};
        ScanNow(moved);
    } else if (mask == kItemPCChanged) {
        for (const auto& [key, member] : members_) {
            if (const auto receiver = member.receiver.lock()) {
                receiver->OnOtherPC();
            }
        }
        Send(from.address().to_v4(), MakePacket({.command = PCCommand::kDeviceInfoChangeAck,
                                                 .tag = notice.header.tag,
                                                 .subTag = notice.header.subTag}));
    }
}

void CDatagramPort::TakeAlive(std::uint8_t tag, Address from) {
    std::shared_ptr<IDatagramReceiver> asked = askedByTag_[tag].lock();
    const auto member = members_.find(asked.get());
    if (member == members_.end() || member->second.address != from) {
        const auto placed =
            std::ranges::find_if(members_, [from](const auto& entry) { return entry.second.address == from; });
        if (placed != members_.end()) {
            asked = placed->second.receiver.lock();
        }
    }
    if (asked != nullptr) {
        asked->OnAlive();
    }
}

bool CDatagramPort::Send(Address target, const Buffer& packet) {
    error_code error;
    socket_.send_to(asio::buffer(packet), {target, kAnalyzerUDPPort}, 0, error);
    return !error;
}

bool CDatagramPort::ScanNow(Address target) {
    const Address local = LocalAddress(target);
    return Send(target, ScanRequest(NextTag(), local.to_uint(), port_));
}

bool CDatagramPort::SearchNow() {
    bool sent = false;
    if (!settings_.searchAddresses.empty()) {
        for (const Address& target : settings_.searchAddresses) {
            sent = ScanNow(target) || sent;
        }
        return sent;
    }
    for (const Interface& network : BroadcastInterfaces()) {
        if (settings_.localAddress.is_unspecified() || settings_.localAddress == network.address) {
            sent = Send(network.broadcast, ScanRequest(NextTag(), network.address.to_uint(), port_)) || sent;
        }
    }
    return sent;
}

std::uint8_t CDatagramPort::NextTag() {
    return ++tag_;
}

}  // namespace ZELPC
