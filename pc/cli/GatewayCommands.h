#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace ZELPC {

/// Adds "gateway" and "queue". When one of them is chosen, `run` becomes what does it and gives an ExitStatus.
void AddGatewayCommands(CLI::App& app, std::function<int()>& run);

}  // namespace ZELPC
