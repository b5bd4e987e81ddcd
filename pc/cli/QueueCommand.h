#pragma once

#include <cstdint>
#include <string>

namespace ZELPC {

/// What "queue" is told to do.
struct QueueOptions {
    std::string gateway = "127.0.0.1:9080";
    std::string tokenFile;  ///< empty: the environment's ZELPC_TOKEN, or this user's gateway's own
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
