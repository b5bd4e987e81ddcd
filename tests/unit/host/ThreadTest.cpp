#include <gtest/gtest.h>
#include <pthread.h>

#include <stdexcept>

#include "platform/Service.h"

using namespace QENFx::Service;

namespace {

class Thrower final : public Thread {
public:
    int Run() override { throw std::runtime_error("escaped"); }
};

// Fault: an exception of a worker that is swallowed, so that the service lives on without it.
TEST(ThreadTest, EscapedExceptionEndsTheProcess) {
    EXPECT_EXIT(
        {
            Thrower thrower;
            thrower.Start();
            pthread_join(thrower.GetThreadId(), nullptr);
        },
        testing::KilledBySignal(SIGABRT), "escaped");
}

}  // namespace
