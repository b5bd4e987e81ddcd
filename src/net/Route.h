#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <vector>

#include "net/CPCMsg.h"
#include "net/CUDSMsg.h"
#include "wire/PCCommand.h"

namespace RMUP::Net {

class CTCPSession;

/// Who handles a message: `handle` is called for each message of its id, on the receiving thread.
/// Route tables outlive the endpoints that they are given to.
struct UDPRoute {
    PCCommand id;
    std::function<int(CPCMsg& message)> handle;  ///< negative = failed
    const char* failure;                         ///< the log line of a failure; its one %s receives the tag
    bool heartbeat;                              ///< successes count as signs of life of the PC
};

struct TCPRoute {
    PCCommand id;
    std::function<void(const CPCMsg& message, const std::shared_ptr<CTCPSession>& session)> handle;
};

/// What a session does with the PC's packets, and whom it tells that it has ended.
struct TCPRoutes {
    std::vector<TCPRoute> routes;
    std::function<void(const std::shared_ptr<CTCPSession>& session)> sessionEnded;
};

struct UDSRoute {
    UDSMessageId id;
    std::function<void(const CUDSMsg& message)> handle;
};

/// The route of a command or message id, or null: such messages are ignored.
template <typename Table, typename Id>
auto FindRoute(const Table& routes, Id id) -> decltype(std::ranges::data(routes)) {
    const auto found = std::ranges::find(routes, id, [](const auto& route) { return route.id; });
    return found == std::ranges::end(routes) ? nullptr : &*found;
}

}  // namespace RMUP::Net
