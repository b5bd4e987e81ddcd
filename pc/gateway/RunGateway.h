#pragma once

#include "gateway/GatewayConfig.h"

namespace ZELPC {

/// Runs a gateway until SIGTERM or SIGINT. Returns the exit status; throws std::exception when it cannot begin.
int RunGateway(const GatewayConfig& config);

}  // namespace ZELPC
