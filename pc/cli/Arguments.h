#pragma once

namespace ZELPC {

/// Reads the arguments, runs the sub-command that they name, and returns zelpc's exit status.
[[nodiscard]] int RunArguments(int argc, const char* const* argv);

}  // namespace ZELPC
