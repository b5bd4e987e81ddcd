#pragma once

#include <string>

#include "gateway/GatewayConfig.h"

namespace ZELPC {

/// Where the token lies that a gateway makes for itself when the configuration names none: beside its store.
std::string OwnTokenFile(const GatewayConfig& config);

/// The token of the configuration, or the gateway's own, which is made when it is not there yet. Readable for the
/// gateway's user only.
std::string TokenOf(const GatewayConfig& config);

}  // namespace ZELPC
