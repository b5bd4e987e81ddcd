#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "store/CDatabase.h"
#include "store/CStoreLock.h"
#include "store/CWriter.h"
#include "store/Records.h"

namespace ZELPC {

struct StoreOptions {
    std::string path;
    /// Results are refused when the disk has less room than this, so that what is already there can still be delivered
    /// and marked.
    std::int64_t minFreeBytes = 64 << 20;
    /// Days that a result is kept after its last delivery; 0: for ever.
    int keepDays = 0;
    /// Results are refused while so many bytes of them wait to be written: a disk that stands still must not fill the
    /// memory. Each is in memory a second time with whoever brought it.
    std::size_t maxWaitingBytes = 64 << 20;
};

/// A destination that results are queued for.
struct StoreDestination {
    std::string name;
    std::string kind;  ///< "P" patient results only, "Q" control results only, empty: all
};

/// How the store is: what the page, the log and the metrics say.
struct StoreHealth {
    std::string problem;  ///< why nothing can be stored, empty when all is well
    std::int64_t stored = 0;
    std::int64_t repeated = 0;
    std::int64_t aside = 0;
    std::int64_t failed = 0;
    std::int64_t removed = 0;  ///< because they had been kept long enough
};

/// Everything that a gateway must not lose: the results as they came, and the queues of the destinations. All changes
/// go through one writer, and a callback with a success means that the change is on the disk.
class CStore {
public:
    using AppendDone = std::function<void(const AppendOutcome&)>;
    using Done = std::function<void(const std::string* error)>;
    using CountDone = std::function<void(std::int64_t count, const std::string* error)>;
    /// Called when a new result can be found and is queued, or, `again`, when one was there already because its
    /// acknowledgement was lost; on the thread that wrote it.
    using Stored = std::function<void(std::int64_t result, const std::string& serial, bool again)>;

    /// Opens the store, or makes it. Throws std::runtime_error with the reason when it is in use, cannot be written to,
    /// is damaged or not a store; such a file stays as it is.
    explicit CStore(const StoreOptions& options);
    ~CStore() { Close(); }

    /// Before SetDestinations.
    void OnStored(Stored stored) { stored_ = std::move(stored); }
    /// Sets where results go from now on. Before the first Append.
    void SetDestinations(const std::vector<StoreDestination>& destinations);

    /// Ends after all that was handed over; nothing can be handed over any more.
    void Close();

    /// Keeps a result. `done` is told when its text is on the disk; a moment later it can be found and is queued for
    /// every destination, or is known as one that came before, however this program ends meanwhile.
    void Append(NewResult result, AppendDone done);
    /// `done` is told when all results that were kept before can be found and are queued.
    void File(Done done);

    /// Records that these were delivered, whatever else was decided about them meanwhile.
    void MarkDelivered(std::vector<std::int64_t> deliveries, Done done);
    /// Records what came of an attempt to deliver that was not accepted.
    void Mark(DeliveryMark mark, Done done);

    /// Queues the results that the filter finds for `destination` again; held ones go on where they stood. `done` gets
    /// their number.
    void Again(std::string destination, ResultFilter filter, CountDone done);
    /// The same for one delivery that is held, was dropped or made.
    void AgainOne(std::int64_t delivery, CountDone done);
    /// Gives up a delivery that waits or is held. The result itself stays.
    void Drop(std::int64_t delivery, CountDone done);

    /// Removes results that were delivered, and whose last delivery changed before `before`. What waits or is held for
    /// any destination, and what was delivered nowhere, stays. Looks at a few hundred results a call and goes on with
    /// the next ones at the next call; `done` gets false when the last one was looked at.
    void RemoveOld(std::int64_t before, std::function<void(bool more)> done);

    StoreHealth Health() const;
    /// Writes something, so that Health tells whether a problem has gone.
    void Probe();
    /// Tells this store from every other; part of what makes message numbers unique.
    const std::string& Id() const { return id_; }
    const std::string& Path() const { return options_.path; }
    int KeepDays() const { return options_.keepDays; }

private:
    struct Target {
        std::int64_t id;
        std::string kind;
    };

    /// A result whose text is on the disk, and that is to be filed.
    struct Arrival {
        std::int64_t id;
        std::shared_ptr<const NewResult> content;
    };
    /// For each that a transaction files, the result that it is: itself, or one that came before.
    using Filing = std::vector<std::int64_t>;

    AppendOutcome AppendNow(CDatabase& database, const NewResult& result);
    AppendOutcome KeepAside(CDatabase& database, const NewResult& result, const std::string& reason);
    bool ComesAlone(const std::string& serial);
    void LoadArrivals();
    void TakeArrival(Arrival arrival);
    void FileAfter(std::chrono::milliseconds pause);
    void FileSome(CDatabase& database, Filing& filing);
    std::int64_t FileOne(CDatabase& database, const Arrival& arrival);
    void Filed(const Filing& filing);
    void TellFilers(const std::string* error);
    void Queue(CDatabase& database, std::int64_t result, const NewResult& content, const std::string& kind);
    bool RemoveSome(CDatabase& database, std::int64_t before, std::int64_t& removed);
    std::string WhyNoRoom() const;
    void RequireRoom() const;
    void Count(const AppendOutcome& outcome);
    void SetProblem(const std::string& problem);

    const StoreOptions options_;
    const CStoreLock lock_;
    std::unique_ptr<CDatabase> database_;
    std::string id_;
    std::vector<Target> targets_;
    // These are of whoever writes.
    std::int64_t lookedAt_ = 0;  // the last result that RemoveOld has seen
    std::int64_t lastId_ = 0;    // of all results that ever were
    std::deque<Arrival> arrivals_;
    std::size_t arrivedBytes_ = 0;
    bool filingSoon_ = false;
    std::vector<std::pair<std::int64_t, Done>> filers_;  // who waits until the results to this one are filed

    std::atomic<bool> closing_ = false;
    Stored stored_;
    mutable std::mutex mutex_;
    StoreHealth health_;
    std::string lastSerial_;
    std::chrono::steady_clock::time_point lastAppend_;
    // Last: its thread uses everything above.
    std::unique_ptr<CWriter> writer_;
};

}  // namespace ZELPC
