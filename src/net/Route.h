#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <span>

#include "net/CPCMsg.h"
#include "net/CUDSMsg.h"

namespace RMUP::Net {

class CTCPSession;

/// Who handles a message: `handle` makes the handler object for this one message and runs it on the receiving thread.
/// Route tables outlive the endpoints that they are given to.
struct UDPRoute {
    std::uint16_t id;
    int (*handle)(CPCMsg& message);  ///< negative = failed
    const char* failure;             ///< the log line of a failure; its one %s receives the tag
    bool heartbeat;                  ///< successes count as signs of life of the PC
};

struct TCPRoute {
    std::uint16_t id;
    void (*handle)(CPCMsg& message, const std::shared_ptr<CTCPSession>& session);
};

/// What a session does with the PC's packets, and whom it tells that it has ended.
struct TCPRoutes {
    std::span<const TCPRoute> routes;
    void (*sessionEnded)(const std::shared_ptr<CTCPSession>& session);
};

struct UDSRoute {
    std::uint16_t id;
    void (*handle)(CUDSMsg& message);
};

/// The route of a command or message id, or null: such messages are ignored.
template <typename Route>
const Route* FindRoute(std::span<const Route> routes, std::uint16_t id) {
    const auto found = std::ranges::find(routes, id, &Route::id);
    return found == routes.end() ? nullptr : &*found;
}

}  // namespace RMUP::Net
