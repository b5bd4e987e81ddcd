#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>

namespace UnitTest {

/// A disk that is full for whoever writes a file beyond `bytes`; also root is held by it.
class FullDisk {
public:
    explicit FullDisk(rlim_t bytes) : signalBefore_(std::signal(SIGXFSZ, SIG_IGN)) {
        ::getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{bytes, before_.rlim_max};
        EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;
    ~FullDisk() {
        ::setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, signalBefore_);
    }

private:
    rlimit before_{};
    void (*signalBefore_)(int);
};

}  // namespace UnitTest
