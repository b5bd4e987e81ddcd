#include "link/CAnalyzerLink.h"

#include <algorithm>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/post.hpp>
#include <random>

#include "link/LinkError.h"
#include "link/NoThrow.h"
#include "packet/Requests.h"
#include "wire/PCCommand.h"

namespace ZELPC {

namespace asio = boost::asio;
using asio::ip::address_v4;
using namespace std::chrono_literals;

namespace {

constexpr std::uint16_t kEverything = kItemActivity | kItemPeerID | kItemTCPPort | kItemDeviceAddress |
                                      kItemSerialNumber | kItemAnyVersion | kItemRegistration;

constexpr int kScanRounds = 3;
constexpr std::chrono::milliseconds kScanPatience = 700ms;
constexpr std::chrono::milliseconds kFirstPause = 1s;
constexpr std::chrono::milliseconds kLongestPause = 60s;
constexpr std::chrono::milliseconds kRejoinPause = 50ms;

/// A registration that lasted so long was none that fails over and over.
constexpr std::chrono::seconds kProvenTime = 30s;

/// 1 s, 2 s, 4 s and so on, each a little more or less, so that many links do not come back all at once.
std::chrono::milliseconds GrowingPause(int failures) {
    constexpr int kMostDoublings = 6;
    thread_local std::minstd_rand random(std::random_device{}());
    const auto pause = std::min(kFirstPause * (1 << std::clamp(failures - 1, 0, kMostDoublings)), kLongestPause);
    return pause * std::uniform_int_distribution<int>(80, 120)(random) / 100;
}

/// The device information carries fewer characters of the serial number than the scan does.
bool SameSerial(const std::string& scanned, const std::string& told) {
    return scanned.starts_with(told) && (told.size() >= 10 || told == scanned);
}

}  // namespace

CAnalyzerLink::CAnalyzerLink(std::shared_ptr<CDatagramPort> port, LinkSettings settings,
                             std::shared_ptr<ILinkEvents> events)
    : port_(std::move(port)),
      settings_(std::move(settings)),
      strand_(asio::make_strand(port_->Context())),
      slots_(std::make_shared<ResultSlots>(strand_)),
      events_(std::move(events)),
      timer_(strand_),
      address_(settings_.address),
      serial_(settings_.serial),
      mayTakeOver_(settings_.takeOver) {
    status_.serial = serial_;
    status_.address = address_;
    status_.since = std::chrono::system_clock::now();
}

void CAnalyzerLink::Start() {
    port_->Attach(shared_from_this(), address_, serial_);
    asio::co_spawn(
        strand_, [self = shared_from_this()] { return self->Run(); }, asio::detached);
}

asio::awaitable<void> CAnalyzerLink::Run() {
    while (!stopping_) {
        Setback setback;
        try {
            setback = co_await Attempt();
        } catch (const LinkError& error) {
            setback = rejoining_ ? Setback{LinkState::kRegistering, kRejoinPause}
                                 : Setback{LinkState::kWaiting, GrowingPause(++failures_), error.what()};
        }
        registered_ = false;
        if (session_ != nullptr) {
            session_->Close(setback.reason);
            session_.reset();
        }
        if (push_ != nullptr) {
            push_->TakeSession(nullptr);
        }
        if (!stopping_) {
            co_await Pause(setback);
        }
    }
    Finish();
}

asio::awaitable<CAnalyzerLink::Setback> CAnalyzerLink::Attempt() {
    takenBy_.reset();
    Tell({.state = LinkState::kSearching});
    co_await Locate();
    Tell({.state = LinkState::kConnecting});
    session_ = std::make_shared<CLinkSession>(
        strand_, port_, slots_,
        SessionHandlers{[self = shared_from_this()](std::shared_ptr<CReceivedResult> result) {
                            self->events_->OnResult(std::move(result));
                        },
                        [self = shared_from_this()](const Packet& packet) { self->TakeUpdatePacket(packet); }});
    co_await session_->Open(address_, serial_);
    const DeviceInfo info = co_await session_->GetInfo(kEverything);
    if (!SameSerial(serial_, info.serial.value_or(""))) {
        throw LinkError("the analyzer there has the serial number " + info.serial.value_or("?"));
    }
    if (const auto taken = Occupant(info)) {
        if (std::exchange(held_, false)) {
            co_return Lose(*taken);
        }
        if (!mayTakeOver_) {
            co_return TakenBy(*taken);
        }
    }
    const bool known = info.registered.value_or(false);
    if (!std::exchange(rejoining_, false) || !known) {
        if (known) {
            // The analyzer goes on counting this PC as connected while a registration has to wait.
            session_->KeepAlive(shared_from_this());
        }
        if (const auto setback = co_await Register()) {
            co_return *setback;
        }
    }
    co_return co_await Serve();
}

asio::awaitable<void> CAnalyzerLink::Locate() {
    reachable_ = false;
    if (!address_.is_unspecified() && co_await Ask(false)) {
        reachable_ = true;
        co_return;
    }
    const bool search = address_.is_unspecified() || (!serial_.empty() && failures_ % 2 == 1);
    if (!stopping_ && search && co_await Ask(true)) {
        reachable_ = true;
        co_return;
    }
    throw LinkError(search ? "no analyzer with the serial number " + serial_ + " answers"
                           : "no answer from " + address_.to_string());
}

asio::awaitable<bool> CAnalyzerLink::Ask(bool everywhere) {
    sighting_.reset();
    for (int round = 0; round < kScanRounds && !sighting_ && !stopping_; ++round) {
        if (everywhere) {
            port_->SendSearch();
        } else {
            port_->SendScan(address_);
        }
        timer_.expires_after(kScanPatience);
        co_await timer_.async_wait(kNoThrow);
    }
    co_return sighting_.has_value();
}

asio::awaitable<CAnalyzerLink::Setback> CAnalyzerLink::Serve() {
    const auto session = session_;
    session->KeepAlive(shared_from_this());
    co_await BeginsToCount();
    const DeviceInfo info = co_await session->GetInfo(kEverything);
    rejoining_ = false;
    registered_ = true;
    held_ = true;
    const Clock::time_point since = Clock::now();
    Tell({.state = LinkState::kRegistered});
    events_->OnInfo(info);
    if (push_ != nullptr) {
        push_->TakeSession(session);
    }
    const std::string reason = co_await session->Ended();
    if (takenBy_) {
        held_ = false;
        co_return Lose(*takenBy_);
    }
    if (Clock::now() - since > kProvenTime) {
        failures_ = 0;
    }
    throw LinkError(reason);
}

asio::awaitable<void> CAnalyzerLink::Pause(Setback setback) {
    const auto pause = setback.pause;
    Tell(std::move(setback));
    if (!stopping_) {
        timer_.expires_after(pause);
        co_await timer_.async_wait(kNoThrow);
    }
}

void CAnalyzerLink::TakeSighting(const ScanAnswer& answer, address_v4 from) {
    if (stopping_ || (!serial_.empty() && answer.serial != serial_) || answer.serial.empty() ||
        (session_ != nullptr && session_->IsOpen())) {
        return;
    }
    const address_v4 told(answer.address);
    const bool moved = address_ != told && address_ != from;
    if (moved) {
        address_ = told.is_unspecified() ? from : told;
    }
    if (moved || serial_.empty()) {
        serial_ = answer.serial;
        port_->Attach(shared_from_this(), address_, serial_);
    }
    const std::scoped_lock lock(statusMutex_);
    const LinkState state = status_.state;
    sighting_ = answer;
    if (state == LinkState::kSearching || (state == LinkState::kWaiting && (moved || !reachable_))) {
        timer_.cancel();
    }
}

void CAnalyzerLink::TakeUpdatePacket(const Packet& packet) {
    if (push_ != nullptr) {
        push_->Take(packet);
    } else if (packet.header.command == PCCommand::kGetInfo && session_ != nullptr) {
        // The analyzer's operator asked for an update: there is none.
        session_->Send(UpdateVersions(packet.header.tag, session_->PeerID(), {}));
    }
}

void CAnalyzerLink::Tell(Setback setback) {
    LinkStatus status;
    {
        const auto now = std::chrono::system_clock::now();
        const std::scoped_lock lock(statusMutex_);
        if (status_.state != setback.state) {
            status_.since = now;
        }
        status_.state = setback.state;
        status_.serial = serial_;
        status_.model = sighting_ ? sighting_->model : status_.model;
        status_.address = address_;
        status_.refusal = setback.refusal;
        status_.otherPC = std::move(setback.other);
        status_.reason = std::move(setback.reason);
        status_.nextTry = setback.pause > 0ms ? std::optional(now + setback.pause) : std::nullopt;
        status = status_;
    }
    events_->OnStatus(status);
}

void CAnalyzerLink::Finish() {
    Tell({.state = LinkState::kStopped});
    events_.reset();
    if (push_ != nullptr) {
        push_->Fail("the link was stopped");
    }
}

}  // namespace ZELPC
