#include "common/Shell.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace {

constexpr int kCannotRun = 127;

/// What the child does; only what is safe after a fork from a process with threads.
[[noreturn]] void Become(const char* const* arguments, pid_t parent) {
    // Without the daemon's handlers before signals are let in. SIGKILL and SIGSTOP refuse.
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    for (int number = 1; number < NSIG; ++number) {
        sigaction(number, &action, nullptr);
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);

    // Sent when the thread that forked ends: it waits for the command, so only with the whole process.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) {
        _exit(kCannotRun);  // it ended before
    }
    setsid();
    const int nothing = open("/dev/null", O_RDONLY);
    if (nothing > STDIN_FILENO) {
        dup2(nothing, STDIN_FILENO);
        close(nothing);
    }
    if (nothing >= 0) {
        execv("/bin/sh", const_cast<char* const*>(arguments));
    }
    _exit(kCannotRun);
}

}  // namespace

int RunShell(const char* command) {
    // A child of the shell would survive the shell, so the command is to take its place.
    const char* const arguments[] = {"sh", "-c", "eval \"exec $1\"", "sh", command, nullptr};

    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child == 0) {
        Become(arguments, parent);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (child < 0) {
        return -1;
    }

    int status = -1;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            return -1;
        }
    }
    return status;
}
