#pragma once

#include <atomic>
#include <boost/asio/thread_pool.hpp>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace ZELPC {

/// Something that somebody has to look at.
struct Alarm {
    std::string kind;  ///< "store", "down", "behind", "held"
    std::string name;  ///< of the destination; empty for the store
    std::string text;
    std::int64_t since = 0;
};

/// The alarms at hand. The beginning and the end of each goes to the log and to the configured program.
class CAlarms {
public:
    explicit CAlarms(std::string command) : command_(std::move(command)) {}
    ~CAlarms();
    CAlarms(const CAlarms&) = delete;
    CAlarms& operator=(const CAlarms&) = delete;

    /// What is wrong now, by kind and name.
    void Update(std::vector<Alarm> now);
    std::vector<Alarm> Current() const;
    /// Ends the program if it runs, and runs it no more.
    void Stop();

private:
    void Tell(const Alarm& alarm, bool begins);

    const std::string command_;
    mutable std::mutex mutex_;
    std::vector<Alarm> current_;
    std::atomic<bool> ending_ = false;
    std::atomic<int> untold_ = 0;
    // One program at a time, and nobody waits for it.
    boost::asio::thread_pool runner_{1};
};

}  // namespace ZELPC
