#include "net/CResultMarker.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <mutex>

#include "common/CDescriptor.h"

namespace {

constexpr char kPath[] = "/tmp/rm_send_result_success";

std::mutex awaitedMutex;
int awaited = 0;

}  // namespace

CResultMarker::Awaited::Awaited(int& ofSession) : ofSession_(ofSession) {
    const std::lock_guard lock(awaitedMutex);
    ++awaited;
    ++ofSession_;
    Remove();
}

CResultMarker::Awaited::~Awaited() {
    const std::lock_guard lock(awaitedMutex);
    --awaited;
    --ofSession_;
}

void CResultMarker::Acknowledge(const int& ofSession) {
    const std::lock_guard lock(awaitedMutex);
    if (awaited == 0 || ofSession > 0) {
        Create();
    }
}

void CResultMarker::Create() {
    // In place of whatever else is there, which is no marker; a FIFO would keep the one who opens it.
    if (!Exists()) {
        Remove();
        const CDescriptor file(open(kPath, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0644));
    }
}

void CResultMarker::Remove() {
    unlink(kPath);
}

bool CResultMarker::Exists() {
    struct stat status {};
    return lstat(kPath, &status) == 0 && S_ISREG(status.st_mode);
}

void CResultMarker::RemoveStale() {
    const std::lock_guard lock(awaitedMutex);
    if (awaited == 0) {
        Remove();
    }
}
