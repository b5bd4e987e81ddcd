#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace ZELPC {

class CDatabase;

/// All writing to the store, one transaction after the other. A thread of its own takes everything that waits into one
/// transaction, so that many analyzers share one sync of the disk, and reports each piece of work after the commit.
/// What may be done at once, while nothing is written, to a disk that is quick, is done by the thread that brings it:
/// waking another one takes about as long as the commit.
class CWriter {
public:
    using Work = std::function<void(CDatabase&)>;
    /// Called on the thread that wrote, once the work is committed (null), or is not done and never will be (why).
    /// It must not wait for the writer.
    using Done = std::function<void(const std::string* error)>;
    /// Told after each transaction whether it failed, and why; the empty text: it did not.
    using Health = std::function<void(const std::string& error)>;

    /// `maxWaitingBytes`: how much of what is to be written is held in memory.
    CWriter(CDatabase& database, std::size_t maxWaitingBytes, Health health);
    ~CWriter() { End(); }

    /// Returns after all work that was submitted; there may be no more.
    void End();

    /// Hands work over; it is done in this order. Refused at once, on the caller's thread, when too much waits.
    void Submit(Work work, Done done) { SubmitJob({std::move(work), std::move(done), 0, {}}, false); }
    /// The same for work that holds so many `bytes`, and is refused because of these, too. `atOnce`: somebody waits for
    /// it and nobody else brings any; it may be done, and reported, before this returns.
    void Submit(Work work, Done done, std::size_t bytes, bool atOnce) {
        SubmitJob({std::move(work), std::move(done), bytes, {}}, atOnce);
    }

    /// For work that nobody waits for: done after `pause`, together with what else there is, or at the end. One at a
    /// time; from a Work or Done.
    void SubmitLater(Work work, Done done, std::chrono::milliseconds pause);

private:
    struct Job {
        Work work;
        Done done;
        std::size_t bytes;
        std::string error;
    };
    using Jobs = std::vector<Job>;

    static constexpr std::size_t kMaxWaiting = 20000;

    void SubmitJob(Job job, bool atOnce);
    bool HasRoom(const Job& job) const;
    void Loop();
    void WaitForWork(std::unique_lock<std::mutex>& lock);
    void Write(Jobs& jobs);
    void Commit(Jobs& jobs);
    void RunOne(Job& job, bool alone);
    bool TakesTransaction(const std::exception& failure) const;
    void RollBack();

    CDatabase& database_;
    const std::size_t maxWaitingBytes_;
    const Health health_;
    std::mutex mutex_;
    std::condition_variable wake_;
    Jobs waiting_;
    std::optional<Job> later_;
    std::chrono::steady_clock::time_point laterAt_;
    std::size_t bytes_ = 0;  // of all that waits or is being written
    bool writing_ = false;   // somebody does, and has the database for itself
    bool blocked_ = false;   // by that, the thread
    bool quick_ = false;     // the last commit was
    bool ending_ = false;
    std::thread thread_;
};

}  // namespace ZELPC
