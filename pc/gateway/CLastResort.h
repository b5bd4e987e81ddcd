#pragma once

#include <spdlog/spdlog.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <thread>

namespace ZELPC {

/// Ends the process when its orderly end takes too long: a name server that is silent, a disk that hangs and a broker
/// that takes a connection and says nothing are waited for in calls that nothing breaks off. What was acknowledged is
/// on the disk, and what was not delivered is sent after the next start.
class CLastResort {
public:
    ~CLastResort() {
        if (thread_.joinable()) {
            {
                const std::lock_guard lock(mutex_);
                over_ = true;
            }
            changed_.notify_one();
            thread_.join();
        }
    }

    /// The end has begun.
    void Begin() {
        thread_ = std::thread([this] {
            std::unique_lock lock(mutex_);
            if (!changed_.wait_for(lock, kLongestEnd, [this] { return over_; })) {
                spdlog::error("the end takes too long: something is broken off");
                std::_Exit(0);
            }
        });
    }

private:
    static constexpr auto kLongestEnd = std::chrono::seconds(12);

    std::mutex mutex_;
    std::condition_variable changed_;
    bool over_ = false;
    std::thread thread_;
};

}  // namespace ZELPC
