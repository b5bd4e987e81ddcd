#include "net/CResultMarker.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/CDescriptor.h"

namespace RMUP::Net {

namespace {

constexpr char kPath[] = "/tmp/rm_send_result_success";

}  // namespace

CResultMarker::Awaited::Awaited(CResultMarker& marker, int& ofSession) : marker_(marker), ofSession_(ofSession) {
    const std::lock_guard lock(marker_.mutex_);
    ++marker_.awaited_;
    ++ofSession_;
    Remove();
}

CResultMarker::Awaited::~Awaited() {
    const std::lock_guard lock(marker_.mutex_);
    --marker_.awaited_;
    --ofSession_;
}

void CResultMarker::Acknowledge(const int& ofSession) {
    const std::lock_guard lock(mutex_);
    if (awaited_ == 0 || ofSession > 0) {
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
    const std::lock_guard lock(mutex_);
    if (awaited_ == 0) {
        Remove();
    }
}

}  // namespace RMUP::Net
