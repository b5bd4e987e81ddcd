#include "deliver/CRabbitDestination.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace ZELPC {

asio::awaitable<DeliveryOutcome> CRabbitDestination::Deliver(const OutgoingMessage& message) {
    DeliveryOutcome outcome;
    co_await asio::co_spawn(
        thread_.get_executor(),
        [this, &message, &outcome]() -> asio::awaitable<void> {
            outcome = connection_.Publish(message);
            co_return;
        },
        asio::use_awaitable);
    co_return outcome;
}

}  // namespace ZELPC
