#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "deliver/CDestination.h"

namespace ZELPC {

/// What a receiver answered.
struct Acknowledgement {
    std::string code;       ///< MSA-1: "AA", "CA" accepted, "AE", "CE" error, "AR", "CR" rejected, or nonsense
    std::string controlId;  ///< MSA-2: the message that is answered
    std::string text;       ///< MSA-3, or what ERR says

    /// What this answer means for the message.
    DeliveryOutcome Outcome() const;
};

/// Reads an answer; nothing when it is not one. Whatever else the answer holds is passed over.
std::optional<Acknowledgement> ReadAcknowledgement(std::string_view message);

/// MSH-10 of a message; empty when it has none.
std::string ControlIdOf(std::string_view message);

}  // namespace ZELPC
