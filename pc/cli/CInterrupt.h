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

    /// Lets neither come while it lives, for a request of which it must be known what became of it. The only thread.
    class Hold {
    public:
        Hold() {
            sigset_t both;
            sigemptyset(&both);
            sigaddset(&both, SIGINT);
            sigaddset(&both, SIGTERM);
            ::sigprocmask(SIG_BLOCK, &both, &before_);
        }
        ~Hold() { ::sigprocmask(SIG_SETMASK, &before_, nullptr); }
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;

    private:
        sigset_t before_;
    };

    /// Ends early when one comes.
    static void Sleep(long milliseconds) {
        const timespec time{milliseconds / 1000, milliseconds % 1000 * 1'000'000};
        ::nanosleep(&time, nullptr);
    }

private:
    static inline volatile std::sig_atomic_t came_ = 0;
};

}  // namespace ZELPC
