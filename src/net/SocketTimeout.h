#pragma once

#include <sys/socket.h>
#include <sys/time.h>

/// Sets SO_SNDTIMEO or SO_RCVTIMEO. Returns 0, or -1 with errno.
inline int SetSocketTimeout(int descriptor, int option, int seconds) {
    const timeval timeout{seconds, 0};
    return setsockopt(descriptor, SOL_SOCKET, option, &timeout, sizeof(timeout));
}
