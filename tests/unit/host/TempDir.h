#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "unit/support/TempDir.h"

namespace HostTest {

using UnitTest::FullDisk;
using UnitTest::ReadFile;
using UnitTest::TempDir;
using UnitTest::WriteFile;

inline std::vector<std::string> ReadLines(const std::string& path) {
    std::vector<std::string> lines;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}

/// Runs the work in a process of its own and gives its identifier.
template <typename Work>
pid_t InChild(Work work) {
    std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
        work();
        ::_exit(0);
    }
    return child;
}

inline int WaitFor(pid_t child) {
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return status;
}

}  // namespace HostTest
