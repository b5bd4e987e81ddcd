#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/asio/ip/address_v4.hpp>
#include <cstdint>
#include <optional>
#include <string>

#include "link/CLinkHub.h"
#include "link/LinkStatus.h"
#include "packet/DeviceInfo.h"

/// Short visits to an analyzer that nobody holds: one connection, one errand. All throw LinkError when the analyzer
/// cannot be reached or does not answer.
namespace ZELPC {

/// Asks an analyzer for items (PCInfoItem).
[[nodiscard]] boost::asio::awaitable<DeviceInfo> AskInfo(CLinkHub& hub, boost::asio::ip::address_v4 analyzer,
                                                         std::uint16_t items);

/// What became of a registration.
struct RegisterOutcome {
    Refusal refusal = Refusal::kNone;
    std::optional<OtherPC> other;  ///< the PC that is registered, and which was not to be replaced
};

/// Registers this PC, and leaves. The analyzer keeps the registration, but sends results only while somebody holds it.
[[nodiscard]] boost::asio::awaitable<RegisterOutcome> RegisterAt(CLinkHub& hub, boost::asio::ip::address_v4 analyzer,
                                                                 std::string password, bool takeOver);

/// How things stand after an attempt to end this PC's registration.
enum class UnregisterOutcome {
    kDone,
    kNotRegistered,  ///< no PC is, or another one
    kHeldElsewhere,  ///< another connection of this PC holds it, which only a registration, by password, replaces
};

struct Unregistered {
    UnregisterOutcome outcome = UnregisterOutcome::kDone;
    Refusal refusal = Refusal::kNone;  ///< of the registration that was to replace another connection
    std::optional<OtherPC> other;
};

/// Ends this PC's registration; with a password, also one that another connection of this PC holds.
[[nodiscard]] boost::asio::awaitable<Unregistered> UnregisterAt(CLinkHub& hub, boost::asio::ip::address_v4 analyzer,
                                                                std::optional<std::string> password);

}  // namespace ZELPC
