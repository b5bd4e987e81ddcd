#pragma once

#include <pthread.h>

#include <atomic>
#include <string>

namespace QENFx::Service {

/// Thrown by pointer when work cannot be started; whoever catches it deletes it.
class WorkException {
public:
    explicit WorkException(std::string message) : message_(std::move(message)) {}
    const char* GetMessage() const { return message_.c_str(); }

private:
    std::string message_;
};

/// A POSIX thread that runs `Run` once. Its thread has SIGHUP, SIGQUIT and SIGTERM blocked, so that the signals that
/// end the process are taken by the main thread. The object must outlive `Run`; the thread does not touch it after
/// `Run` returned, unless the object was handed to ThreadMemoryRemover before it was started.
class Thread {
public:
    Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;
    virtual ~Thread();

    /// The work of the thread.
    virtual int Run() = 0;

    /// Creates the thread. Throws WorkException* when the system has no thread left.
    void Start();

    /// Asks `Run` to end at its next look at the stop flag; does not wait for it.
    void Stop() { stop_ = true; }
    bool IsStopped() const { return stop_; }

    /// Valid after Start, for pthread_detach.
    pthread_t GetThreadId() const { return threadId_; }

private:
    pthread_t threadId_{};
    std::atomic<bool> stop_{false};
};

/// Deletes the thread objects handed to it once their thread has ended.
class ThreadMemoryRemover {
public:
    static ThreadMemoryRemover* GetInstance();

    ThreadMemoryRemover(const ThreadMemoryRemover&) = delete;
    ThreadMemoryRemover& operator=(const ThreadMemoryRemover&) = delete;
    virtual ~ThreadMemoryRemover() = default;

    /// Takes ownership of a thread that was not started yet.
    virtual void addThread(Thread* thread) = 0;

protected:
    ThreadMemoryRemover() = default;
};

}  // namespace QENFx::Service
