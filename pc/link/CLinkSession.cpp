#include "link/CLinkSession.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/dispatch.hpp>
#include <boost/asio/post.hpp>

#include <utility>

#include "link/LinkError.h"
#include "link/NoThrow.h"
#include "packet/Requests.h"
#include "wire/Bytes.h"
#include "wire/PCCommand.h"

namespace ZELPC {

namespace asio = boost::asio;

namespace {

constexpr std::chrono::seconds kAnswerPatience{5};

/// The analyzer takes its PC for lost after 10 s without a sign of life.
constexpr std::chrono::seconds kSignOfLifePause{3};
constexpr std::chrono::seconds kSilencePatience{12};

/// Tag 1 is on what an analyzer sends of itself.
constexpr std::uint8_t kFirstTag = 2;

Refusal RefusalOf(std::uint16_t code) {
    switch (PCError{code}) {
        case PCError::kWrongPassword:
            return Refusal::kPassword;
        case PCError::kBusyAnalyzing:
            return Refusal::kAnalyzing;
        case PCError::kBusyUpdating:
            return Refusal::kUpdating;
        default:
            return Refusal::kOther;
    }
}

}  // namespace

ResultSlots::ResultSlots(const Strand& strand) : freed(strand, asio::steady_timer::time_point::max()) {}

CLinkSession::CLinkSession(const Strand& strand, std::shared_ptr<CDatagramPort> port,
                           std::shared_ptr<ResultSlots> slots, SessionHandlers handlers)
    : strand_(strand),
      port_(std::move(port)),
      slots_(std::move(slots)),
      handlers_(std::move(handlers)),
      connection_(std::make_shared<CConnection>(strand)),
      tag_(kFirstTag),
      signTimer_(strand),
      answer_(strand, asio::steady_timer::time_point::max()) {}

asio::awaitable<void> CLinkSession::Open(asio::ip::address_v4 analyzer, const std::string& serial) {
    analyzer_ = analyzer;
    serial_ = serial;
    co_await connection_->Open(port_->Settings().localAddress, analyzer);
    asio::co_spawn(
        strand_, [self = shared_from_this()] { return self->Read(); }, asio::detached);
}

asio::awaitable<DeviceInfo> CLinkSession::GetInfo(std::uint16_t items) {
    const Buffer request = InfoRequest(NextTag(), PeerID(), items);
    const auto answer = co_await Call(request, PCCommand::kInfo);
    if (!answer) {
        throw LinkError("the analyzer does not tell about itself");
    }
    const auto info = answer->header.command == PCCommand::kInfo ? ParseDeviceInfo(answer->payload) : std::nullopt;
    if (!info) {
        throw LinkError("what the analyzer tells about itself cannot be understood");
    }
    co_return *info;
}

asio::awaitable<Refusal> CLinkSession::Register(const std::string& password) {
    const HubSettings& settings = port_->Settings();
    const Registration registration{.password = password,
                                    .udpPort = port_->Port(),
                                    .address = LocalAddress().to_uint(),
                                    .name = settings.name,
                                    .peerID = settings.peerID};
    const Buffer request = RegisterRequest(NextTag(), registration);
    const auto answer = co_await Call(request, PCCommand::kRegisterDeviceResponse);
    if (!answer) {
        co_return Refusal::kNoAnswer;
    }
    if (answer->header.command == PCCommand::kRegisterDeviceResponse) {
        co_return Refusal::kNone;
    }
    co_return answer->payload.size() == 2 ? RefusalOf(Bytes::GetBE16(answer->payload, 0)) : Refusal::kOther;
}

asio::awaitable<void> CLinkSession::Unregister() {
    const Wire::PCPacketKind kind{
        .command = PCCommand::kUnregisterDevice, .tag = NextTag(), .subTag = static_cast<std::uint8_t>(PeerID())};
    const Buffer request = MakePacket(kind);
    const auto answer = co_await Call(request, PCCommand::kUnregisterDeviceResponse);
    if (!answer || answer->header.command != PCCommand::kUnregisterDeviceResponse) {
        throw LinkError("the analyzer did not confirm that the registration ended");
    }
}

void CLinkSession::KeepAlive(std::shared_ptr<IDatagramReceiver> receiver) {
    if (!std::exchange(keptAlive_, true)) {
        alive_ = Clock::now();
        asio::co_spawn(
            strand_, [self = shared_from_this(), receiver] { return self->SendSignsOfLife(receiver); }, asio::detached);
    }
}

void CLinkSession::OnAlive() {
    alive_ = Clock::now();
    answered_ = true;
    answer_.cancel();
}

asio::awaitable<void> CLinkSession::Answered() {
    const auto self = shared_from_this();
    while (!answered_ && IsOpen()) {
        co_await answer_.async_wait(kNoThrow);
    }
    if (!IsOpen()) {
        const std::string reason = co_await connection_->Ended();
        throw LinkError(reason);
    }
}

void CLinkSession::Send(const Wire::PCPacketKind& kind, std::span<const std::uint8_t> payload) {
    connection_->Send(MakePacket(kind, payload));
}

asio::awaitable<void> CLinkSession::SendPaced(Buffer packet) {
    co_await connection_->SendPaced(std::move(packet));
}

asio::awaitable<void> CLinkSession::Flush() {
    co_await connection_->Flush();
}

asio::awaitable<std::string> CLinkSession::Ended() {
    co_return co_await connection_->Ended();
}

void CLinkSession::Close(const std::string& reason) {
    connection_->Close(reason);
}

asio::awaitable<void> CLinkSession::Read() {
    const auto self = shared_from_this();
    try {
        for (;;) {
            co_await WaitForSlot();
            Packet packet = co_await connection_->Receive();
            Dispatch(std::move(packet));
        }
    } catch (const LinkError&) {
        // Whoever holds the session learns the reason from Ended().
    }
    if (const auto latest = latest_.lock()) {
        latest->Expire();
    }
    for (Waiter* waiter : waiters_) {
        waiter->timer.cancel();
    }
    signTimer_.cancel();
    answer_.cancel();
    handlers_ = {};
}

void CLinkSession::Dispatch(Packet packet) {
    switch (packet.header.command) {
        case PCCommand::kResult:
            TakeResult(std::move(packet));
            break;
        case PCCommand::kRegisterDeviceResponse:
        case PCCommand::kUnregisterDeviceResponse:
        case PCCommand::kInfo:
        case PCCommand::kErrorNotice:
            Answer(std::move(packet));
            break;
        case PCCommand::kUpdateAccept:
        case PCCommand::kImageRequest:
        case PCCommand::kImageReceived:
        case PCCommand::kGetInfo:
            if (handlers_.update) {
                handlers_.update(packet);
            }
            break;
        default:
            break;
    }
}

asio::awaitable<std::optional<Packet>> CLinkSession::Call(const Buffer& request, PCCommand answer) {
    const auto self = shared_from_this();
    constexpr std::size_t kTagOffset = 2;
    Waiter waiter{request[kTagOffset], answer, asio::steady_timer(strand_, kAnswerPatience), {}};
    const auto place = waiters_.insert(waiters_.end(), &waiter);
    connection_->Send(request);
    if (IsOpen()) {
        co_await waiter.timer.async_wait(kNoThrow);
    }
    waiters_.erase(place);
    if (!waiter.answer && !IsOpen()) {
        const std::string reason = co_await connection_->Ended();
        throw LinkError(reason);
    }
    co_return std::move(waiter.answer);
}

void CLinkSession::Answer(Packet packet) {
    for (Waiter* waiter : waiters_) {
        const bool refused = packet.header.command == PCCommand::kErrorNotice;
        if (waiter->tag == packet.header.tag && !waiter->answer &&
            (refused || waiter->command == packet.header.command)) {
            waiter->answer = std::move(packet);
            waiter->timer.cancel();
            return;
        }
    }
    if (packet.header.command == PCCommand::kErrorNotice && handlers_.update) {
        handlers_.update(packet);
    }
}

asio::awaitable<void> CLinkSession::WaitForSlot() {
    held_ = {};
    if (slots_->used < CReceivedResult::kMaxPending) {
        co_return;
    }
    const Clock::time_point begin = Clock::now();
    while (slots_->used >= CReceivedResult::kMaxPending && IsOpen()) {
        co_await slots_->freed.async_wait(kNoThrow);
    }
    held_ = Clock::now() - begin;
}

void CLinkSession::TakeResult(Packet packet) {
    if (const auto before = latest_.lock()) {
        before->Expire();
    }
    const unsigned number = ++results_;
    if (!handlers_.result) {
        return;
    }
    ++slots_->used;
    auto release = [slots = slots_, strand = strand_] {
        asio::post(strand, [slots] {
            --slots->used;
            slots->freed.cancel();
        });
    };
    auto send = [weak = weak_from_this(), strand = strand_, number, tag = packet.header.tag] {
        asio::dispatch(strand, [weak, number, tag] {
            if (const auto self = weak.lock()) {
                self->SendAcknowledgement(number, tag);
            }
        });
    };
    std::string text(reinterpret_cast<const char*>(packet.payload.data()), packet.payload.size());
    auto result =
        std::make_shared<CReceivedResult>(serial_, std::move(text), held_, std::move(send), std::move(release));
    latest_ = result;
    handlers_.result(std::move(result));
}

void CLinkSession::SendAcknowledgement(unsigned number, std::uint8_t tag) {
    // Another result may have come since the receiver asked for this; the analyzer would take it for that one's.
    if (number == results_) {
        Send({.command = PCCommand::kResult, .tag = tag, .subTag = static_cast<std::uint8_t>(PeerID())});
    }
}

asio::awaitable<void> CLinkSession::SendSignsOfLife(std::shared_ptr<IDatagramReceiver> receiver) {
    const auto self = shared_from_this();
    while (IsOpen()) {
        if (Clock::now() - alive_ > kSilencePatience) {
            Close("the analyzer does not answer signs of life");
            break;
        }
        port_->SendSignOfLife(receiver, analyzer_);
        signTimer_.expires_after(kSignOfLifePause);
        co_await signTimer_.async_wait(kNoThrow);
    }
}

std::uint8_t CLinkSession::NextTag() {
    tag_ = tag_ == 0xFF ? kFirstTag : static_cast<std::uint8_t>(tag_ + 1);
    return tag_;
}

}  // namespace ZELPC
