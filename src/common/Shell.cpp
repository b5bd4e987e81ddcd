#include "common/Shell.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

int RunShell(const char* command) {
    posix_spawnattr_t attributes;
    if (posix_spawnattr_init(&attributes) != 0) {
        return -1;
    }
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);

    const char* const arguments[] = {"sh", "-c", command, nullptr};
    pid_t child = -1;
    const int failed =
        posix_spawn(&child, "/bin/sh", nullptr, &attributes, const_cast<char* const*>(arguments), environ);
    posix_spawnattr_destroy(&attributes);
    if (failed != 0) {
        return -1;
    }

    int status = -1;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            return -1;
        }
    }
    return status;
}
