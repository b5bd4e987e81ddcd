#pragma once

#include <array>
#include <boost/asio/any_io_executor.hpp>
#include <memory>
#include <optional>

#include "deliver/CDestination.h"
#include "deliver/CMllpDecoder.h"
#include "deliver/CStream.h"
#include "deliver/DestinationOptions.h"

namespace ZELPC {

/// A laboratory information system that takes HL7 messages over TCP, one by one, and answers each. The connection stays
/// open between messages.
class CMllpDestination : public CDestination {
public:
    CMllpDestination(asio::any_io_executor executor, const DestinationOptions& options);

    asio::awaitable<DeliveryOutcome> Deliver(const OutgoingMessage& message) override;
    void Cancel() override;

private:
    struct Answer {
        DeliveryOutcome outcome;
        bool closedBeforeAnswer = false;  ///< the connection ended without a byte
    };

    asio::awaitable<std::string> Connect();
    asio::awaitable<Answer> Exchange(const OutgoingMessage& message);
    std::optional<Answer> ExchangeAtOnce(const OutgoingMessage& message, std::size_t& sent);
    asio::awaitable<Answer> ReadAnswer(const OutgoingMessage& message);
    std::optional<Answer> TakeBytes(const OutgoingMessage& message, std::string_view bytes);
    std::optional<DeliveryOutcome> FindAnswer(const OutgoingMessage& message);
    void Disconnect();

    const asio::any_io_executor executor_;
    const DestinationOptions options_;
    std::unique_ptr<CStream> stream_;
    CMllpDecoder decoder_;
    std::string frame_;
    std::array<char, 4096> bytes_;
    std::size_t received_ = 0;  ///< bytes since the message was sent
    bool answersAtOnce_ = false;
    std::string strangers_;  ///< what the last answer to another message named
};

}  // namespace ZELPC
