#include "common/Shell.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>

#include "common/CDescriptor.h"
#include "common/ProcessEnd.h"

namespace {

std::atomic<int> quits{0};

}  // namespace

// Faults: a SIGQUIT that is ignored while a command runs, a command given up when a signal interrupts the wait for it.
TEST(ShellTest, KeepsTheDispositionsOfSignals) {
    struct sigaction action {};
    action.sa_handler = [](int) { ++quits; };
    sigaction(SIGQUIT, &action, nullptr);
    const int status = RunShell("sh -c 'sleep 0.1; kill -QUIT $PPID; sleep 0.1; exit 3'");
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 3);
    EXPECT_EQ(quits, 1);
}

// Faults: a command that inherits the worker's blocked signals and cannot be ended any more, that asks its caller's
// input or terminal and waits, or that goes on after its caller was killed.
TEST(ShellTest, CommandsCanBeEnded) {
    BlockEndingSignals();
    const int status = RunShell("sh -c 'kill -TERM $$; exit 0'");
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGTERM);

    int input[2];
    ASSERT_EQ(pipe(input), 0);
    ASSERT_EQ(write(input[1], "yes\n", 4), 4);
    dup2(input[0], STDIN_FILENO);
    EXPECT_EQ(WEXITSTATUS(RunShell("sh -c 'read answer || cat </dev/tty || exit 5' 2>/dev/null")), 5);

    int output[2];
    ASSERT_EQ(pipe(output), 0);
    const pid_t caller = fork();
    if (caller == 0) {
        dup2(output[1], STDOUT_FILENO);
        RunShell("sh -c 'echo begun; kill -STOP $$'");
        _exit(0);
    }
    CDescriptor(output[1]).Reset();
    char text[16];
    EXPECT_EQ(read(output[0], text, sizeof text), 6);
    kill(caller, SIGKILL);
    waitpid(caller, nullptr, 0);
    pollfd closed{output[0], POLLIN, 0};
    EXPECT_EQ(poll(&closed, 1, 10'000), 1) << "somebody is left who could write";
}
