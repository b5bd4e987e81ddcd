#pragma once

namespace ZELPC {

/// How zelpc ends; documented in zelpc(1).
enum ExitStatus : int {
    kDone = 0,
    kFailed = 1,       ///< what was asked for did not come about
    kUsage = 2,        ///< wrong arguments, or a file that cannot be read
    kUnreachable = 3,  ///< no analyzer answers, or the connection failed
    kRefused = 4,      ///< the analyzer, or its registered PC, stands against it
    kUnfit = 5,        ///< what was given is not what it should be: a release, a message, a packet
    kInterrupted = 6,  ///< called off by Ctrl-C or SIGTERM before it was done
};

}  // namespace ZELPC
