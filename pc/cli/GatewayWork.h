#pragma once

#include "cli/Options.h"

/// What goes through a gateway, because an analyzer knows one PC and the gateway is it.
namespace ZELPC {

/// Shows what happens on the gateway's analyzers until Ctrl-C. Results are the gateway's to acknowledge. Returns an
/// ExitStatus.
[[nodiscard]] int WatchThroughGateway(const WatchOptions& options);

/// Has the gateway send a release and shows how it goes. Returns an ExitStatus and has said why it is not kDone.
[[nodiscard]] int PushThroughGateway(const PushOptions& options);

}  // namespace ZELPC
