#pragma once

#include <boost/asio/thread_pool.hpp>
#include <memory>

#include "deliver/CDestination.h"
#include "deliver/CRabbitConnection.h"
#include "deliver/DestinationOptions.h"

namespace ZELPC {

/// A quorum queue of RabbitMQ. A message is accepted when the broker has confirmed it, which it does once a majority of
/// its nodes has it on the disk.
class CRabbitDestination : public CDestination {
public:
    explicit CRabbitDestination(const DestinationOptions& options) : connection_(options) {}

    asio::awaitable<DeliveryOutcome> Deliver(const OutgoingMessage& message) override;
    void Cancel() override { connection_.BreakOff(); }

private:
    CRabbitConnection connection_;  // of the thread below, but for BreakOff
    // The client library waits in its calls.
    asio::thread_pool thread_{1};
};

}  // namespace ZELPC
