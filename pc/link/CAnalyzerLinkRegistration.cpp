// How a link becomes and stays the registered one: see CAnalyzerLink.cpp for the rest of its life.

#include "link/CAnalyzerLink.h"
#include "link/LinkError.h"
#include "link/NoThrow.h"
#include "wire/PCCommand.h"

namespace ZELPC {

namespace asio = boost::asio;
using namespace std::chrono_literals;

namespace {

constexpr std::chrono::milliseconds kTakenPause = 30s;
constexpr std::chrono::milliseconds kRefusedPause = 60s;
constexpr std::chrono::milliseconds kBusyPause = 5s;
constexpr std::chrono::milliseconds kMonitorPause = 200ms;
}  // namespace

std::optional<OtherPC> CAnalyzerLink::Occupant(const DeviceInfo& info) const {
    if (!info.registered.value_or(false)) {
        return info.registrant && info.registrant->address != 0 ? info.registrant : std::nullopt;
    }
    // An analyzer knows its PC by the address alone: another program on this PC shows by its name.
    const std::string name = port_->Settings().name.substr(0, kNameLength);
    if (sighting_ && sighting_->busy && sighting_->pcAddress == session_->LocalAddress().to_uint() &&
        sighting_->pcName != name) {
        return OtherPC{sighting_->pcAddress, sighting_->pcName};
    }
    return std::nullopt;
}

asio::awaitable<std::optional<CAnalyzerLink::Setback>> CAnalyzerLink::Register() {
    const auto session = session_;
    for (;;) {
        Tell({.state = LinkState::kRegistering});
        const Refusal refusal = co_await session->Register(settings_.password);
        if (refusal == Refusal::kNone) {
            // An analyzer that counted a PC as connected until now, be it this one, takes the change for the loss of
            // its link and closes this very connection. The next one is the PC's without a registration.
            rejoining_ = true;
            co_return std::nullopt;
        }
        if (refusal == Refusal::kPassword || refusal == Refusal::kOther) {
            co_return Setback{LinkState::kRefused, kRefusedPause, TextOf(refusal), refusal};
        }
        const Setback busy{LinkState::kRefused, kBusyPause, TextOf(refusal), refusal};
        co_await Pause(busy);
    }
}

asio::awaitable<void> CAnalyzerLink::BeginsToCount() {
    // Behind its answer the analyzer pauses for a second; what it is asked next it answers when it is through. Then a
    // sign of life has to reach it, and ten times a second it looks whether both is so.
    const auto session = session_;
    (void)co_await session->GetInfo(kItemRegistration);
    co_await session->Answered();
    timer_.expires_after(kMonitorPause);
    co_await timer_.async_wait(kNoThrow);
}

CAnalyzerLink::Setback CAnalyzerLink::Lose(const OtherPC& other) {
    mayTakeOver_ = false;
    events_->OnTakenOver(other);
    return TakenBy(other);
}

CAnalyzerLink::Setback CAnalyzerLink::TakenBy(const OtherPC& other) {
    return {LinkState::kTaken, kTakenPause, "another PC is registered", Refusal::kNone, other};
}

asio::awaitable<void> CAnalyzerLink::CheckRegistration() {
    const auto session = session_;
    try {
        const DeviceInfo info = co_await session->GetInfo(kItemRegistration);
        if (info.registrant && info.registrant->address != 0) {
            takenBy_ = info.registrant;
            session->Close("another PC has registered");
        }
    } catch (const LinkError&) {
        // The session ends by itself when nothing is heard.
    }
    checking_ = false;
}

}  // namespace ZELPC
