#pragma once

#include <boost/asio/ip/address_v4.hpp>
#include <chrono>
#include <optional>
#include <string>

#include "packet/DeviceInfo.h"

namespace ZELPC {

/// How things stand between this PC and one analyzer.
///
///     kSearching ──► kConnecting ──► kRegistering ──► kRegistered
///         ▲               ▲                │               │ connection lost or silent
///         │  no answer    │ after a pause  ▼               ▼
///         └────────── kWaiting ◄── kRefused, kTaken ◄──────┘
///
/// kStopped is the end, from any state.
enum class LinkState {
    kSearching,    ///< asking the network where the analyzer is
    kConnecting,   ///< opening the connection, asking who it is and who is registered
    kRegistering,  ///< waiting for the answer to a registration
    kRegistered,   ///< the analyzer counts this PC as connected: results come here, updates may be sent
    kWaiting,      ///< not reachable, or lost; tried again at `nextTry`
    kRefused,      ///< the analyzer refused the registration, see `refusal`; tried again at `nextTry`
    kTaken,        ///< another PC is registered, see `otherPC`; looked at again at `nextTry`
    kStopped,
};

[[nodiscard]] const char* TextOf(LinkState state);

/// Why an analyzer did not register this PC.
enum class Refusal {
    kNone,
    kPassword,   ///< the administrator password is not right
    kAnalyzing,  ///< it measures; it will take a registration afterwards
    kUpdating,   ///< it updates its software; likewise
    kNoAnswer,   ///< nothing came, as from an analyzer that is just sending a result
    kOther,      ///< an error code that has no meaning here
};

/// In words, as a sentence part: "the administrator password is not correct".
[[nodiscard]] const char* TextOf(Refusal refusal);

struct LinkStatus {
    LinkState state = LinkState::kSearching;
    std::string serial;  ///< empty until the analyzer has told it
    std::string model;   ///< likewise
    boost::asio::ip::address_v4 address;
    Refusal refusal = Refusal::kNone;
    std::optional<OtherPC> otherPC;
    std::string reason;  ///< why it is as it is, for people: "connection refused"; may be empty
    std::chrono::system_clock::time_point since;
    std::optional<std::chrono::system_clock::time_point> nextTry;
};

}  // namespace ZELPC
