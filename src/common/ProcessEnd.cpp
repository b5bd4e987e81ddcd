#include "common/ProcessEnd.h"

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>

namespace {

std::atomic<pid_t> endingThread{0};

sigset_t EndingSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGHUP);
    sigaddset(&set, SIGQUIT);
    sigaddset(&set, SIGTERM);
    return set;
}

}  // namespace

void EndProcess() {
    // From here on no signal may interrupt: a second one would find the exit half done.
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr);

    // exit() must run once: its list of exit handlers is not made for two callers.
    pid_t first = 0;
    if (!endingThread.compare_exchange_strong(first, gettid())) {
        if (first == gettid()) {
            _exit(1);
        }
        for (;;) {
            pause();
        }
    }
    exit(1);
}

void BlockEndingSignals() {
    const sigset_t set = EndingSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

CEndingSignalsWindow::CEndingSignalsWindow() : mainThread_(getpid() == gettid()) {
    if (mainThread_) {
        const sigset_t set = EndingSignals();
        pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    }
}

CEndingSignalsWindow::~CEndingSignalsWindow() {
    if (mainThread_) {
        BlockEndingSignals();
    }
}
