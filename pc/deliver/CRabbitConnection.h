#pragma once

#include <amqp.h>

#include <string>

#include "deliver/CDestination.h"
#include "deliver/DestinationOptions.h"

namespace ZELPC {

/// A connection to a RabbitMQ broker that publishes one message at a time and waits for the broker's confirmation. Made
/// when it is needed, and anew after a failure. All calls block, within the options' limits, and come from one thread.
class CRabbitConnection {
public:
    explicit CRabbitConnection(const DestinationOptions& options) : options_(options) {}
    ~CRabbitConnection() { Close(); }
    CRabbitConnection(const CRabbitConnection&) = delete;
    CRabbitConnection& operator=(const CRabbitConnection&) = delete;

    DeliveryOutcome Publish(const OutgoingMessage& message);

private:
    std::string Open();
    std::string OpenSocket();
    std::string OpenChannel();
    DeliveryOutcome AwaitConfirmation();
    std::string Problem(const char* doing) const;
    void Close();

    const DestinationOptions options_;
    amqp_connection_state_t connection_ = nullptr;
};

}  // namespace ZELPC
