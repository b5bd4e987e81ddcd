#include <semaphore.h>
#include <signal.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <set>
#include <system_error>

#include "platform/Service.h"

namespace QENFx::Service {

namespace {

/// Address space of a worker's stack. The deepest user is the update worker: a 128 KiB image block, the resolver's
/// 64 KiB answer and SQLite's parser may lie on it at once. The system's default of 8 MiB would let a few dozen PC
/// sessions use up a 32-bit address space.
constexpr std::size_t kStackSize = 512 * 1024;

class Remover final : public ThreadMemoryRemover {
public:
    static Remover& Instance() {
        // Never destroyed: threads may still end while the process exits.
        static Remover* const instance = new Remover;
        return *instance;
    }

    void Add(Thread* thread) {
        const std::lock_guard lock(mutex_);
        waiting_.insert(thread);
    }

    /// Forgets the object; whether it was known.
    bool Take(Thread* thread) {
        const std::lock_guard lock(mutex_);
        return waiting_.erase(thread) != 0;
    }

private:
    std::mutex mutex_;
    std::set<Thread*> waiting_;
};

/// Workers start with the ending signals blocked, from their first instruction on: the creator blocks them for itself
/// while it creates.
class EndingSignalsBlocked {
public:
    EndingSignalsBlocked() {
        sigset_t ending;
        sigemptyset(&ending);
        for (const int signal : {SIGHUP, SIGQUIT, SIGTERM}) {
            sigaddset(&ending, signal);
        }
        pthread_sigmask(SIG_BLOCK, &ending, &before_);
    }
    EndingSignalsBlocked(const EndingSignalsBlocked&) = delete;
    EndingSignalsBlocked& operator=(const EndingSignalsBlocked&) = delete;
    ~EndingSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

private:
    sigset_t before_;
};

class ThreadAttributes {
public:
    ThreadAttributes() {
        pthread_attr_init(&attributes_);
        pthread_attr_setstacksize(&attributes_, kStackSize);
    }
    ThreadAttributes(const ThreadAttributes&) = delete;
    ThreadAttributes& operator=(const ThreadAttributes&) = delete;
    ~ThreadAttributes() { pthread_attr_destroy(&attributes_); }

    const pthread_attr_t* get() const { return &attributes_; }

private:
    pthread_attr_t attributes_{};
};

/// What the creator hands to the new thread. It lives on the creator's stack until `taken`.
struct Launch {
    Thread* thread;
    pthread_t* id;
    bool removed;
    sem_t taken;
};

/// Detaches the calling thread unless somebody else did: to do it twice is undefined.
void DetachOnce() {
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0) {
        return;
    }
    int state = PTHREAD_CREATE_DETACHED;
    pthread_attr_getdetachstate(&attributes, &state);
    pthread_attr_destroy(&attributes);
    if (state == PTHREAD_CREATE_JOINABLE) {
        pthread_detach(pthread_self());
    }
}

/// An exception that leaves Run ends the process.
void* RunThread(void* argument) noexcept {
    Launch& launch = *static_cast<Launch*>(argument);
    Thread* const thread = launch.thread;
    std::unique_ptr<Thread> owned(launch.removed ? thread : nullptr);
    // Stored from here, because the creator must not touch an object that may be gone by then.
    *launch.id = pthread_self();
    sem_post(&launch.taken);
    thread->Run();
    if (owned != nullptr) {
        owned.reset();
        // With the object nobody has the thread's identifier any more.
        DetachOnce();
    }
    return nullptr;
}

}  // namespace

WorkException::WorkException(const std::string& message) : message_(message) {}

WorkException::~WorkException() = default;

const char* WorkException::GetMessage() const {
    return message_.c_str();
}

struct Thread::Content {
    pthread_t id{};
    std::atomic<bool> stop{false};
};

Thread::Thread() : fields_{std::make_unique<Content>().release(), {}} {}

// Whoever deletes a thread that was handed over but never started takes it back by that.
Thread::~Thread() {
    Remover::Instance().Take(this);
    const std::unique_ptr<Content> owned(fields_.content);
}

void Thread::Stop() {
    fields_.content->stop = true;
}

bool Thread::IsStopped() const {
    return fields_.content->stop;
}

pthread_t Thread::GetThreadId() const {
    return fields_.content->id;
}

void Thread::Start() {
    Launch launch{this, &fields_.content->id, Remover::Instance().Take(this), {}};
    sem_init(&launch.taken, 0, 0);
    pthread_t id;
    int error = 0;
    {
        const EndingSignalsBlocked blocked;
        const ThreadAttributes attributes;
        error = pthread_create(&id, attributes.get(), RunThread, &launch);
    }
    if (error == 0) {
        while (sem_wait(&launch.taken) != 0) {
        }
    }
    sem_destroy(&launch.taken);
    if (error != 0) {
        if (launch.removed) {
            Remover::Instance().Add(this);
        }
        throw new WorkException("Cannot create a thread: " + std::generic_category().message(error));
    }
}

ThreadMemoryRemover* ThreadMemoryRemover::GetInstance() {
    return &Remover::Instance();
}

void ThreadMemoryRemover::addThread(Thread* thread) {
    static_cast<Remover*>(this)->Add(thread);
}

}  // namespace QENFx::Service
