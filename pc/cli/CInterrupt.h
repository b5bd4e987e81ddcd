#pragma once

#include <csignal>
#include <ctime>

namespace ZELPC {

/// Ctrl-C and SIGTERM for work that looks every now and then whether it is to end. A second one ends the process.
class CInterrupt {
public:
    CInterrupt() {
        struct sigaction action {};
        action.sa_handler = [](int) { came_ = 1; };
        action.sa_flags = static_cast<int>(SA_RESETHAND);
        ::sigaction(SIGINT, &action, nullptr);
        ::sigaction(SIGTERM, &action, nullptr);
    }

    static bool Came() { return came_ != 0; }

    /// Ends early when one comes.
    static void Sleep(long milliseconds) {
        const timespec time{milliseconds / 1000, milliseconds % 1000 * 1'000'000};
        ::nanosleep(&time, nullptr);
    }

private:
    static inline volatile std::sig_atomic_t came_ = 0;
};

}  // namespace ZELPC
