#include "common/Shell.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <atomic>

#include "common/ProcessEnd.h"

namespace {

std::atomic<int> quits{0};

}  // namespace

// Faults: a SIGQUIT that is ignored while a command runs, a command given up when a signal interrupts the wait for it.
TEST(ShellTest, KeepsTheDispositionsOfSignals) {
    struct sigaction action {};
    action.sa_handler = [](int) { ++quits; };
    sigaction(SIGQUIT, &action, nullptr);
    const int status = RunShell("sleep 0.1; kill -QUIT $PPID; sleep 0.1; exit 3");
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 3);
    EXPECT_EQ(quits, 1);
}

// Fault: a command that inherits the worker's blocked signals and cannot be ended any more.
TEST(ShellTest, CommandsCanBeEnded) {
    BlockEndingSignals();
    const int status = RunShell("kill -TERM $$; exit 0");
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGTERM);
}
