#include "common/CMutex.h"

#include <cerrno>
#include <cstring>

CMutex::CMutex(QENFx::Log::FileLog* log, const char* createTag, const char* destroyTag)
    : log_(log), destroyTag_(destroyTag) {
    if (pthread_mutex_init(&mutex_, nullptr) < 0) {
        log_->WriteError("%s Mutex init error: %s", createTag, strerror(errno));
        log_->WriteError("%s Cannot assure data consistency", createTag);
    }
}

CMutex::~CMutex() {
    if (pthread_mutex_destroy(&mutex_) < 0) {
        log_->WriteError("%s Mutex destroy error: %s", destroyTag_, strerror(errno));
    }
}
