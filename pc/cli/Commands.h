#pragma once

#include "cli/Options.h"

/// The sub-commands. Each returns an ExitStatus and has said on standard error why it is not kDone.
namespace ZELPC {

[[nodiscard]] int RunScan(const ScanOptions& options);
[[nodiscard]] int RunInfo(const InfoOptions& options);
[[nodiscard]] int RunRegister(const RegisterOptions& options);
[[nodiscard]] int RunUnregister(const UnregisterOptions& options);
[[nodiscard]] int RunWatch(const WatchOptions& options);
[[nodiscard]] int RunPush(const PushOptions& options);
[[nodiscard]] int RunDecode(const DecodeOptions& options);

}  // namespace ZELPC
