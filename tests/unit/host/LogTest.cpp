#include "platform/Log.h"

#include <algorithm>
#include <cstdio>
#include <latch>
#include <map>
#include <memory>
#include <thread>

#include "TempDir.h"

using HostTest::ReadLines;
using QENFx::Log::FileLog;
using QENFx::Log::Logger;

namespace {

class LogTest : public testing::Test {
protected:
    LogTest() { ::setenv("ZEL_LOG_DIR", (dir_ / "new/log").c_str(), 1); }
    ~LogTest() override {
        Logger::DestroyLogger();
        ::unsetenv("ZEL_LOG_DIR");
    }

    static FileLog* Channel() { return Logger::getLogger()->getLog("[RMUP]"); }

    HostTest::TempDir dir_;
    const std::string file_ = dir_ / "new/log/ZELRmUp.log";
};

// Faults: a line torn by another thread's or lost in a rotation; more files than the storage was promised for.
TEST_F(LogTest, RotationUnderThreadsLosesNothingOfTheLastFiles) {
    constexpr int kThreads = 4;
    constexpr int kLines = 12000;
    const std::string filler(100, 'f');
    {
        // Nobody writes the last line before all have written the others, so that each has a line in the last files.
        std::latch almostDone(kThreads);
        std::vector<std::jthread> threads;
        for (int thread = 0; thread < kThreads; ++thread) {
            threads.emplace_back([&, thread] {
                for (int i = 0; i < kLines; ++i) {
                    if (i == kLines - 1) {
                        almostDone.arrive_and_wait();
                    }
                    Channel()->WriteInfo("%d %d %s end", thread, i, filler.c_str());
                }
            });
        }
    }
    const std::filesystem::directory_iterator files(dir_ / "new/log");
    EXPECT_EQ(std::distance(begin(files), end(files)), 4);

    std::map<int, int> last;
    for (const char* name : {"ZELRmUp.3.log", "ZELRmUp.2.log", "ZELRmUp.1.log", "ZELRmUp.log"}) {
        const std::string path = dir_ / ("new/log/" + std::string(name));
        EXPECT_LE(std::filesystem::file_size(path), 1024u * 1024u);
        for (const std::string& text : ReadLines(path)) {
            int thread = 0;
            int number = 0;
            ASSERT_EQ(std::sscanf(text.c_str(), "%*s %*s [RMUP] INFO %d %d ", &thread, &number), 2) << text;
            ASSERT_TRUE(text.ends_with(" " + filler + " end")) << text;
            const auto [entry, isFirst] = last.try_emplace(thread, number - 1);
            ASSERT_EQ(number, entry->second + 1) << "thread " << thread;
            entry->second = number;
        }
    }
    ASSERT_EQ(last.size(), static_cast<std::size_t>(kThreads));
    for (const auto& [thread, number] : last) {
        EXPECT_EQ(number, kLines - 1) << "thread " << thread;
    }
}

// Faults: an exception or a crash out of a log call when the directory cannot be made, the disk is full or the file is
// gone after a failed rotation; a complaint at every line.
TEST_F(LogTest, AStorageFailureDropsLinesOnly) {
    testing::internal::CaptureStderr();
    HostTest::WriteFile(dir_ / "new", "in the way");
    Channel()->WriteInfo("lost");
    Channel()->WriteInfo("lost");
    Logger::DestroyLogger();

    std::filesystem::remove(dir_ / "new");
    std::filesystem::create_directories(dir_ / "new/log");
    std::filesystem::create_symlink("/dev/full", file_);
    Channel()->WriteError("lost");
    const std::string complaint = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(complaint.begin(), complaint.end(), '\n'), 1) << complaint;
    Logger::DestroyLogger();

    std::filesystem::remove(file_);
    Channel()->WriteInfo("kept");
    EXPECT_EQ(ReadLines(file_).size(), 1u);

    std::filesystem::rename(dir_ / "new", dir_ / "away");
    HostTest::WriteFile(dir_ / "new", "in the way");
    for (int i = 0; i < 20; ++i) {
        Channel()->WriteInfo("%s", std::string(100000, 'z').c_str());
        Channel()->WriteInfo("short");
    }
    EXPECT_EQ(ReadLines(dir_ / "away/log/ZELRmUp.log").size(), 21u);
}

}  // namespace
