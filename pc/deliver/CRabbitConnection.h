#pragma once

#include <amqp.h>

#include <mutex>
#include <string>

#include "deliver/CDestination.h"
#include "deliver/DestinationOptions.h"

namespace ZELPC {

/// A connection to a RabbitMQ broker that publishes one message at a time and waits for the broker's confirmation. Made
/// when it is needed, and anew after a failure. Publish blocks, within the
/// options' limits, and is called from one thread.
class CRabbitConnection {
public:
    explicit CRabbitConnection(const DestinationOptions& options) : options_(options) {}
    ~CRabbitConnection() { Close(); }
    CRabbitConnection(const CRabbitConnection&) = delete;
    CRabbitConnection& operator=(const CRabbitConnection&) = delete;

    DeliveryOutcome Publish(const OutgoingMessage& message);
    /// Makes a call that waits for the broker's answer end, and every one from now on. A name that is being looked up
    /// and a connection that is being made end by the options' limit. Any thread may call.
    void BreakOff();

private:
    std::string Open();
    std::string OpenSocket();
    std::string LogIn();
    std::string OpenChannel();
    bool NoteSocket(int socket);
    DeliveryOutcome AwaitConfirmation();
    std::string Problem(const char* doing) const;
    void Close();

    const DestinationOptions options_;
    amqp_connection_state_t connection_ = nullptr;
    std::mutex mutex_;
    int socket_ = -1;  // of the connection, while it is open
    bool brokenOff_ = false;
};

}  // namespace ZELPC
