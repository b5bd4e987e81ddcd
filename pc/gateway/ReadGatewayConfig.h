#pragma once

#include <string>
#include <string_view>

#include "gateway/GatewayConfig.h"

namespace ZELPC {

/// Reads a configuration. `file` is its name, for errors. Throws CConfigError with line and reason when anything in it
/// is wrong, missing or unknown: a gateway that runs with half of its configuration would lose results silently.
GatewayConfig ReadGatewayConfig(std::string_view text, const std::string& file);

/// The configuration of a gateway that was given none: store and results below `stateDirectory`, the page on this
/// machine only.
GatewayConfig DefaultGatewayConfig(const std::string& stateDirectory);

/// Where a program of this user keeps its state, by the environment.
std::string UserStateDirectory();

/// The [[destination]] tables.
class CConfigTable;
std::vector<DestinationOptions> ReadDestinations(CConfigTable& root);

}  // namespace ZELPC
