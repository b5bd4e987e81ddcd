#include "link/Visits.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/use_awaitable.hpp>

#include "link/CLinkSession.h"
#include "link/LinkError.h"
#include "wire/PCCommand.h"

namespace ZELPC {

namespace asio = boost::asio;
using asio::ip::address_v4;

namespace {

/// Connects, does the errand on the session's strand, and leaves.
template <typename Outcome, typename Errand>
asio::awaitable<Outcome> Visit(CLinkHub& hub, address_v4 analyzer, const Errand& errand) {
    const Strand strand = asio::make_strand(hub.Port()->Context());
    const auto session =
        std::make_shared<CLinkSession>(strand, hub.Port(), std::make_shared<ResultSlots>(strand), SessionHandlers{});
    const auto visit = [&]() -> asio::awaitable<Outcome> {
        const std::string unknown;
        co_await session->Open(analyzer, unknown);
        std::exception_ptr failure;
        Outcome outcome{};
        try {
            outcome = co_await errand(*session);
        } catch (...) {
            failure = std::current_exception();
        }
        session->Close("the visit is over");
        if (failure) {
            std::rethrow_exception(failure);
        }
        co_return outcome;
    };
    try {
        // What the errand refers to lives as long as this coroutine waits for it.
        co_return co_await asio::co_spawn(strand, visit, asio::use_awaitable);
    } catch (const LinkError& error) {
        throw LinkError(analyzer.to_string() + ": " + error.what());
    }
}

/// The analyzer is done with a registration when it answers again, or has closed the connection, as it does when a PC
/// was connected until then.
asio::awaitable<void> AwaitCompletion(CLinkSession& session) {
    try {
        (void)co_await session.GetInfo(kItemRegistration);
    } catch (const LinkError&) {
        co_return;
    }
}

bool IsOther(const DeviceInfo& info) {
    return info.registrant && info.registrant->address != 0;
}

}  // namespace

asio::awaitable<DeviceInfo> AskInfo(CLinkHub& hub, address_v4 analyzer, std::uint16_t items) {
    const auto errand = [items](CLinkSession& session) { return session.GetInfo(items); };
    co_return co_await Visit<DeviceInfo>(hub, analyzer, errand);
}

asio::awaitable<RegisterOutcome> RegisterAt(CLinkHub& hub, address_v4 analyzer, std::string password, bool takeOver) {
    const auto errand = [&password, takeOver](CLinkSession& session) -> asio::awaitable<RegisterOutcome> {
        RegisterOutcome outcome;
        const DeviceInfo before = co_await session.GetInfo(kItemRegistration);
        if (IsOther(before) && !takeOver) {
            outcome.other = before.registrant;
            co_return outcome;
        }
        outcome.refusal = co_await session.Register(password);
        if (outcome.refusal == Refusal::kNone) {
            co_await AwaitCompletion(session);
        }
        co_return outcome;
    };
    co_return co_await Visit<RegisterOutcome>(hub, analyzer, errand);
}

asio::awaitable<Unregistered> UnregisterAt(CLinkHub& hub, address_v4 analyzer, std::optional<std::string> password) {
    Unregistered outcome;
    const DeviceInfo before = co_await AskInfo(hub, analyzer, kItemRegistration);
    if (!before.registered.value_or(false)) {
        outcome.outcome = UnregisterOutcome::kNotRegistered;
        outcome.other = IsOther(before) ? before.registrant : std::nullopt;
        co_return outcome;
    }
    if (password) {
        const RegisterOutcome registered = co_await RegisterAt(hub, analyzer, *password, false);
        outcome.refusal = registered.refusal;
    }
    // On a connection of its own: the one of a registration may be closed by the analyzer.
    const auto errand = [](CLinkSession& session) -> asio::awaitable<DeviceInfo> {
        co_await session.Unregister();
        co_return co_await session.GetInfo(kItemRegistration);
    };
    if (outcome.refusal == Refusal::kNone) {
        const DeviceInfo after = co_await Visit<DeviceInfo>(hub, analyzer, errand);
        outcome.outcome =
            after.registered.value_or(false) ? UnregisterOutcome::kHeldElsewhere : UnregisterOutcome::kDone;
    } else {
        outcome.outcome = UnregisterOutcome::kHeldElsewhere;
    }
    co_return outcome;
}

}  // namespace ZELPC
