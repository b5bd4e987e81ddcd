#pragma once

#include <pthread.h>

#include <string>

#include "platform/Object.h"

namespace QENFx::Service {

/// Thrown by pointer when work cannot be started; whoever catches it deletes it.
class WorkException : public DeletedUnsized {
public:
    explicit WorkException(const std::string& message);
    WorkException(const WorkException&) = delete;
    WorkException& operator=(const WorkException&) = delete;
    ~WorkException();

    /// For the log; valid as long as the exception.
    const char* GetMessage() const;

private:
    std::string message_;
};

/// A POSIX thread that runs `Run` once. Its thread has SIGHUP, SIGQUIT and SIGTERM blocked, so that the signals that
/// end the process are taken by the main thread. The object must outlive `Run`; the thread does not touch it after
/// `Run` returned, unless the object was handed to ThreadMemoryRemover before it was started.
///
/// The framework calls what a derived class overrides by its place: destructor, deleting destructor, Run.
class Thread {
public:
    Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;
    virtual ~Thread();

    /// The work of the thread. What it returns is for nobody; an exception that leaves it ends the process.
    virtual int Run() = 0;

    /// Creates the thread, which somebody has to join or to detach. Once for each object. Throws WorkException* when
    /// the system has no thread left; the object can then be deleted, or started again.
    void Start();

    /// Asks `Run` to end at its next look at the stop flag; does not wait for it, and cannot be taken back. From any
    /// thread, as is IsStopped.
    void Stop();
    bool IsStopped() const;

    /// Valid after Start, for pthread_detach.
    pthread_t GetThreadId() const;

private:
    struct Content;
    Fields<Content, 256> fields_;
};

/// Deletes the thread objects handed to it once their thread has ended, and lets go of threads that nobody joined or
/// detached by then. So whoever wants such a thread detached does it before its `Run` can return, or leaves it.
class ThreadMemoryRemover {
public:
    /// The process-wide one, made on first use; never null. From any thread, as is addThread.
    static ThreadMemoryRemover* GetInstance();

    ThreadMemoryRemover(const ThreadMemoryRemover&) = delete;
    ThreadMemoryRemover& operator=(const ThreadMemoryRemover&) = delete;

    /// Takes ownership of a thread that was not started yet, from the moment when it is.
    void addThread(Thread* thread);

protected:
    ThreadMemoryRemover() = default;
    ~ThreadMemoryRemover() = default;
};

}  // namespace QENFx::Service
