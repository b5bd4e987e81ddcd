#include <pthread.h>
#include <signal.h>

#include <cstddef>
#include <future>
#include <memory>
#include <set>
#include <stdexcept>

#include "TempDir.h"
#include "platform/Service.h"

using namespace QENFx::Service;

namespace {

/// Reports that it was deleted, and what its thread looked like.
class Worker : public Thread {
public:
    explicit Worker(std::promise<void>& deleted) : deleted_(deleted) {}
    ~Worker() override { deleted_.set_value(); }

    int Run() override {
        sigset_t blocked;
        pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
        for (int signal = 1; signal < 32; ++signal) {
            if (sigismember(&blocked, signal) == 1) {
                blockedSignals.insert(signal);
            }
        }
        idIsMine = pthread_equal(pthread_self(), GetThreadId()) != 0;
        released.get_future().wait();
        return 0;
    }

    std::set<int> blockedSignals;
    bool idIsMine = false;
    std::promise<void> released;

private:
    std::promise<void>& deleted_;
};

// Faults: a worker that takes an ending signal, a creator left with signals blocked, an object that the thread deletes
// although its creator owns it.
TEST(ThreadTest, WorkerLeavesTheEndingSignalsToTheMainThread) {
    std::promise<void> deleted;
    auto worker = std::make_unique<Worker>(deleted);
    sigset_t before;
    sigset_t after;
    pthread_sigmask(SIG_SETMASK, nullptr, &before);
    worker->Start();
    pthread_sigmask(SIG_SETMASK, nullptr, &after);
    for (const int signal : {SIGHUP, SIGQUIT, SIGTERM, SIGPIPE}) {
        EXPECT_EQ(sigismember(&before, signal), sigismember(&after, signal));
    }
    worker->released.set_value();
    ASSERT_EQ(pthread_join(worker->GetThreadId(), nullptr), 0);
    EXPECT_EQ(worker->blockedSignals, (std::set<int>{SIGHUP, SIGQUIT, SIGTERM}));
    EXPECT_TRUE(worker->idIsMine);
    EXPECT_EQ(deleted.get_future().wait_for(std::chrono::seconds(0)), std::future_status::timeout);
}

/// The mappings of the process's address space; a stack and its guard are two.
std::size_t Mappings() {
    return HostTest::ReadLines("/proc/self/maps").size();
}

// Faults: an ended worker that is kept, or whose stack is; one deleted while it runs; a thread that cannot be detached
// because it was born so.
TEST(ThreadTest, RemoverDeletesEndedWorkers) {
    std::size_t before = 0;
    for (int i = 0; i < 200; ++i) {
        std::promise<void> deleted;
        auto* worker = std::make_unique<Worker>(deleted).release();
        ThreadMemoryRemover::GetInstance()->addThread(worker);
        worker->Start();
        if (i % 4 == 0) {
            EXPECT_EQ(pthread_detach(worker->GetThreadId()), 0);
        }
        auto gone = deleted.get_future();
        EXPECT_EQ(gone.wait_for(std::chrono::milliseconds(1)), std::future_status::timeout);
        worker->released.set_value();
        ASSERT_EQ(gone.wait_for(std::chrono::seconds(20)), std::future_status::ready);
        before = i == 9 ? Mappings() : before;
    }
    // Some are the allocator's, and some those of threads that are just ending.
    EXPECT_LT(Mappings(), before + 60);
}

// Fault: a remover that still knows a deleted object, and deletes the next one that gets its address.
TEST(ThreadTest, RemoverForgetsWhatItsCreatorDeleted) {
    alignas(Worker) std::byte place[sizeof(Worker)];
    std::promise<void> first;
    auto* forgotten = new (place) Worker(first);
    ThreadMemoryRemover::GetInstance()->addThread(forgotten);
    forgotten->~Worker();

    std::promise<void> second;
    auto* worker = new (place) Worker(second);
    worker->Start();
    worker->released.set_value();
    ASSERT_EQ(pthread_join(worker->GetThreadId(), nullptr), 0);
    worker->~Worker();
}

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
