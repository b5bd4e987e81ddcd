#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace ZELPC {

class CDatabase;

/// The one thread that writes to the store. It takes everything that waits into one transaction, so that many analyzers
/// share one sync of the disk, and reports each piece of work after the commit.
class CWriter {
public:
    using Work = std::function<void(CDatabase&)>;
    /// Called on the writer's thread once the work is committed (null), or is not done and never will be (why).
    /// It must not wait for the writer.
    using Done = std::function<void(const std::string* error)>;
    /// Told after each transaction whether it failed, and why; the empty text: it did not.
    using Health = std::function<void(const std::string& error)>;

    CWriter(CDatabase& database, Health health);
    /// Ends after all work that was submitted.
    ~CWriter();

    /// Hands work over; it is done in this order. Refused at once, on the caller's thread, when too much waits.
    void Submit(Work work, Done done);

private:
    struct Job {
        Work work;
        Done done;
        std::string error;
    };
    using Jobs = std::vector<Job>;

    static constexpr std::size_t kMaxWaiting = 20000;

    void Loop();
    void Commit(Jobs& jobs);
    void RunOne(Job& job);
    void RollBack();

    CDatabase& database_;
    const Health health_;
    std::mutex mutex_;
    std::condition_variable wake_;
    Jobs waiting_;
    bool ending_ = false;
    std::thread thread_;
};

}  // namespace ZELPC
