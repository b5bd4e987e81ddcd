#include "common/ProcessEnd.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <latch>
#include <thread>

namespace {

std::atomic<int> signalsTaken{0};

}  // namespace

// Faults: threads that exit at once run the exit handlers twice or crash, one that comes late goes on or waits for
// ever.
TEST(ProcessEndDeathTest, ExitsOnce) {
    const testing::Matcher<const std::string&> once = testing::Eq("bye\n");
    EXPECT_EXIT(
        {
            std::atexit([] {
                std::fputs("bye\n", stderr);
                EndProcess();  // also where the exit itself fails
            });
            static std::latch together(3);
            const auto end = [] {
                together.arrive_and_wait();
                EndProcess();
            };
            std::thread one(end);
            std::thread two(end);
            end();
        },
        testing::ExitedWithCode(1), once);
}

// Faults: a signal that comes outside the window, one that gets lost, a window that a worker thread opens for itself.
TEST(ProcessEndTest, SignalsComeThroughTheWindowOfTheMainThreadOnly) {
    BlockEndingSignals();
    std::signal(SIGTERM, [](int) { ++signalsTaken; });
    kill(getpid(), SIGTERM);
    std::thread([] {
        const CEndingSignalsWindow window;
        usleep(1000);
    }).join();
    EXPECT_EQ(signalsTaken, 0);
    {
        const CEndingSignalsWindow window;
        usleep(1000);
        EXPECT_EQ(signalsTaken, 1);
    }
    kill(getpid(), SIGTERM);
    usleep(1000);
    EXPECT_EQ(signalsTaken, 1);
}
