#pragma once

#include <cstdint>
#include <string>

#include "cli/Options.h"

namespace ZELPC {

/// What "queue" is told to do.
struct QueueOptions {
    ThroughGateway gateway{.at = "127.0.0.1:9080", .tokenFile = {}};
    bool json = false;
    std::string name;  ///< of the destination
    bool waiting = false;
    std::int64_t delivery = 0;
    std::string serial;
    std::string patient;
    std::string since;
    std::string until;
    bool all = false;
};

/// Each returns an ExitStatus and has said on standard error why it is not kDone.
[[nodiscard]] int RunQueueList(const QueueOptions& options);
[[nodiscard]] int RunQueueShow(const QueueOptions& options);
[[nodiscard]] int RunQueueAgain(const QueueOptions& options);
[[nodiscard]] int RunQueueDrop(const QueueOptions& options);

}  // namespace ZELPC
