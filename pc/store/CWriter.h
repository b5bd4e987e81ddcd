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

/// All writing to the store, one transaction after the other. A thread of its own takes everything that waits into one
/// transaction, so that many analyzers share one sync of the disk, and reports each piece of work after the commit.
/// Urgent work that comes while nothing is written, to a disk that is quick, is done by the thread that brings it:
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
    /// Ends after all work that was submitted.
    ~CWriter();

    /// Hands work over; it is done in this order. Refused at once, on the caller's thread, when too much waits.
    void Submit(Work work, Done done) { Submit({std::move(work), std::move(done), 0, {}}, false); }
    /// The same for work that somebody waits for and that holds so many `bytes`: it may be done, and reported, before
    /// this returns. Only such work is refused because of its bytes.
    void SubmitUrgent(Work work, Done done, std::size_t bytes) {
        Submit({std::move(work), std::move(done), bytes, {}}, true);
    }

private:
    struct Job {
        Work work;
        Done done;
        std::size_t bytes;
        std::string error;
    };
    using Jobs = std::vector<Job>;

    static constexpr std::size_t kMaxWaiting = 20000;

    void Submit(Job job, bool urgent);
    bool HasRoom(const Job& job) const;
    void Loop();
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
    std::size_t bytes_ = 0;  // of all that waits or is being written
    bool writing_ = false;   // somebody does, and has the database for itself
    bool quick_ = false;     // the last commit was
    bool ending_ = false;
    std::thread thread_;
};

}  // namespace ZELPC
