#pragma once

#include <string>

namespace ZELPC {

class CGateway;

/// How the gateway is, in Prometheus' text format.
std::string MetricsText(CGateway& gateway);

}  // namespace ZELPC
