#pragma once

#include <pthread.h>

#include "platform/Log.h"

/// A mutex whose creation and destruction failures are logged under the owner's tags, though no system here lets them
/// fail. Works with std::lock_guard, from any thread; does not nest.
class CMutex {
public:
    /// The tags outlive the mutex.
    CMutex(QENFx::Log::FileLog* log, const char* createTag, const char* destroyTag);
    CMutex(const CMutex&) = delete;
    CMutex& operator=(const CMutex&) = delete;
    ~CMutex();

    void lock() { pthread_mutex_lock(&mutex_); }
    void unlock() { pthread_mutex_unlock(&mutex_); }

private:
    QENFx::Log::FileLog* log_;
    const char* destroyTag_;
    pthread_mutex_t mutex_{};
};
