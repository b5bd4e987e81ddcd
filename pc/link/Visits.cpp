#include "link/Visits.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/use_awaitable.hpp>

#include "link/CLinkSession.h"
#include "wire/PCCommand.h"

namespace ZELPC {

namespace asio = boost::asio;
using asio::ip::address_v4;

namespace {

/// Connects, does the errand on the session's strand, and leaves.
template <typename Outcome, typename Errand>
asio::awaitable<Outcome> Visit(CLinkHub& hub, address_v4 analyzer, Errand errand) {
    const Strand strand = asio::make_strand(hub.Port()->Context());
    const auto session =
        std::make_shared<CLinkSession>(strand, hub.Port(), std::make_shared<ResultSlots>(strand), SessionHandlers{});
    co_return co_await asio::co_spawn(
        strand,
        [session, analyzer, errand]() -> asio::awaitable<Outcome> {
            co_await session->Open(analyzer, "");
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
        },
        asio::use_awaitable);
}

bool IsOther(const DeviceInfo& info) {
    return info.registrant && info.registrant->address != 0;
}

}  // namespace

asio::awaitable<DeviceInfo> AskInfo(CLinkHub& hub, address_v4 analyzer, std::uint16_t items) {
    co_return co_await Visit<DeviceInfo>(hub, analyzer,
                                         [items](CLinkSession& session) { return session.GetInfo(items); });
}

asio::awaitable<RegisterOutcome> RegisterAt(CLinkHub& hub, address_v4 analyzer, std::string password, bool takeOver) {
    co_return co_await Visit<RegisterOutcome>(
        hub, analyzer,
        [password = std::move(password), takeOver](CLinkSession& session) -> asio::awaitable<RegisterOutcome> {
            const DeviceInfo info = co_await session.GetInfo(kItemRegistration);
            if (IsOther(info) && !takeOver) {
                co_return RegisterOutcome{Refusal::kNone, info.registrant};
            }
            co_return RegisterOutcome{co_await session.Register(password), std::nullopt};
        });
}

asio::awaitable<Unregistered> UnregisterAt(CLinkHub& hub, address_v4 analyzer, std::optional<std::string> password) {
    co_return co_await Visit<Unregistered>(
        hub, analyzer, [password = std::move(password)](CLinkSession& session) -> asio::awaitable<Unregistered> {
            DeviceInfo info = co_await session.GetInfo(kItemRegistration);
            if (!info.registered.value_or(false)) {
                co_return Unregistered{UnregisterOutcome::kNotRegistered, Refusal::kNone,
                                       IsOther(info) ? info.registrant : std::nullopt};
            }
            if (password) {
                const Refusal refusal = co_await session.Register(*password);
                if (refusal != Refusal::kNone) {
                    co_return Unregistered{UnregisterOutcome::kHeldElsewhere, refusal, std::nullopt};
                }
            }
            co_await session.Unregister();
            info = co_await session.GetInfo(kItemRegistration);
            co_return Unregistered{
                info.registered.value_or(false) ? UnregisterOutcome::kHeldElsewhere : UnregisterOutcome::kDone,
                Refusal::kNone, std::nullopt};
        });
}

}  // namespace ZELPC
