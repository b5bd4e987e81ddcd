#pragma once

#include <condition_variable>
#include <mutex>
#include <optional>

namespace RMUP::Process {

/// The place of the update worker. There is one, and it is taken as long as its worker lives, so that no second worker
/// can be started beside one that still ends, whatever the device's status says by then. Any thread may call.
///
/// Who has heard a worker's last report may ask for the next update before that worker has ended: whoever finds an
/// ending worker waits for its end, five seconds at most.
class CUpdateSlot {
public:
    CUpdateSlot() = default;
    CUpdateSlot(const CUpdateSlot&) = delete;
    CUpdateSlot& operator=(const CUpdateSlot&) = delete;

    /// Who holds it has the place, which outlives it.
    class Hold {
    public:
        explicit Hold(CUpdateSlot& slot) : slot_(&slot) {}
        Hold(Hold&& other) noexcept;
        Hold& operator=(Hold&&) = delete;
        ~Hold();

    private:
        CUpdateSlot* slot_;
    };

    /// None while another worker lives.
    [[nodiscard]] std::optional<Hold> Take();

    /// Whether a worker lives. Does not wait.
    [[nodiscard]] bool IsTaken();

    /// Returns at once unless a worker is ending.
    void WaitEnd();

    /// The worker that lives is ending: called before its last report goes out. Without a worker nothing happens.
    void BeginEnd();

private:
    enum class Worker { kNone, kRuns, kEnds };

    void WaitEnd(std::unique_lock<std::mutex>& lock);

    std::mutex mutex_;
    std::condition_variable ended_;
    Worker worker_ = Worker::kNone;
};

}  // namespace RMUP::Process
