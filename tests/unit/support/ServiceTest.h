#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace UnitTest {

using Buffer = std::vector<std::uint8_t>;
using Buffers = std::vector<Buffer>;

/// Bytes as hexadecimal digits, with blanks wherever they help.
inline Buffer Hex(std::string digits) {
    std::erase(digits, ' ');
    Buffer bytes;
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoi(digits.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

inline std::string ReadFile(const std::string& path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

inline void WriteFile(const std::string& path, const std::string& content) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << content;
}

/// Whether the condition comes true within 10 s.
template <typename Condition>
bool WaitUntil(Condition condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

/// A test of code that uses the service's fixed paths and ports. Runs under tests/private-paths only, where these are
/// private and empty, and nobody else uses the ports.
class ServiceTest : public testing::Test {
protected:
    ServiceTest() {
        if (std::getenv("ZEL_PRIVATE_PATHS") == nullptr) {
            throw std::runtime_error("to be run by tests/private-paths");
        }
        std::filesystem::create_directories("/data/config");
        std::filesystem::create_directories("/data/log");
    }

    /// What was logged: the lines without time and channel, "INFO text" or "ERROR text".
    static std::vector<std::string> LogLines() {
        std::vector<std::string> lines;
        std::ifstream log("/data/log/ZELRmUp.log");
        for (std::string line; std::getline(log, line);) {
            const std::size_t channel = line.find("[RMUP] ");
            lines.push_back(channel == std::string::npos ? line : line.substr(channel + 7));
        }
        return lines;
    }

    /// How often the log holds this line.
    static std::ptrdiff_t Logged(const std::string& line) { return std::ranges::count(LogLines(), line); }
};

}  // namespace UnitTest
