#include "net/CResultMarker.h"

#include <fcntl.h>
#include <unistd.h>

#include "common/CDescriptor.h"

namespace {

constexpr char kPath[] = "/tmp/rm_send_result_success";

}  // namespace

void CResultMarker::Create() {
    const CDescriptor file(open(kPath, O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644));
}

void CResultMarker::Remove() {
    unlink(kPath);
}

bool CResultMarker::Exists() {
    return access(kPath, F_OK) == 0;
}
