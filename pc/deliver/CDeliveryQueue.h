#pragma once

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>
#include <chrono>
#include <deque>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "deliver/CDestination.h"
#include "deliver/CPause.h"
#include "deliver/DestinationOptions.h"
#include "store/CStore.h"
#include "store/CStoreReader.h"

namespace ZELPC {

/// How the way to a destination is.
struct DeliveryStatus {
    std::string name;
    std::string problem;     ///< why nothing gets through at the moment; empty: it does, or nothing was tried
    std::int64_t since = 0;  ///< when that began
    std::int64_t delivered = 0;
    std::int64_t failed = 0;  ///< attempts that were not accepted
    std::int64_t held = 0;    ///< since the start
    std::int64_t lastDelivered = 0;
};

/// Brings what the store has queued for one destination there: in order per analyzer, analyzers side by side, each
/// message again and again until it is accepted, or held as the options say. Holds no more than a few messages in
/// memory.
///
/// A message counts as delivered when it was accepted; the store learns it a moment later, so after a crash some are
/// sent twice, with the same control ID, and none is left out.
class CDeliveryQueue : public std::enable_shared_from_this<CDeliveryQueue> {
public:
    using Factory = std::function<std::unique_ptr<CDestination>(asio::any_io_executor)>;

    CDeliveryQueue(const asio::any_io_executor& executor, CStore& store, const DestinationOptions& options,
                   const Factory& factory);

    /// Begins with what the store has.
    void Start();
    /// A new result was queued for this analyzer. Any thread may call.
    void Wake(const std::string& serial);
    /// Something was sent again or dropped.
    void WakeAll();
    /// Returns when the store has been given all that was accepted so far: what it is asked for next knows of it.
    asio::awaitable<void> TellStore();
    /// Takes up nothing more, gives what is under way a few seconds, and returns when all is at rest.
    asio::awaitable<void> Stop();

    DeliveryStatus Status() const;
    const DestinationOptions& Options() const { return options_; }

private:
    /// A delivery that is ready to be sent; `error`: why it cannot be.
    struct Prepared {
        Delivery delivery;
        OutgoingMessage message;
        std::string error;
    };
    /// Some of what waits behind `after`, in order. Made beside the strand, while what stands before it is sent.
    struct Batch {
        Batch(const asio::any_io_executor& strand, std::int64_t behind)
            : after(behind), done(strand, asio::steady_timer::time_point::max()) {}

        const std::int64_t after;
        std::vector<Prepared> deliveries;
        bool more = false;  ///< there may be some behind them
        bool made = false;
        std::exception_ptr failure;
        asio::steady_timer done;  ///< never expires; cancelled when it is made
    };
    struct Lane {
        explicit Lane(std::chrono::milliseconds first, std::chrono::milliseconds longest) : pause(first, longest) {}

        bool queued = false;            ///< in ready_, with a worker, or waiting for its pause to end
        bool again = false;             ///< woken meanwhile
        bool rewind = false;            ///< something before `sent` may wait again
        std::int64_t sent = 0;          ///< what was accepted last; what comes next stands behind it
        std::shared_ptr<Batch> ahead;   ///< what comes next, unless it turns out otherwise
        std::set<std::int64_t> marked;  ///< accepted, and the store has yet to say that it knows
        CPause pause;
    };
    using Lanes = std::map<std::string, Lane>;
    /// A delivery that was accepted, and its lane, which stays at least until the store knows.
    struct Accepted {
        Lanes::iterator lane;
        std::int64_t delivery;
    };
    /// What a worker does after a message: takes the analyzer's next one, lets other analyzers have their turn, leaves
    /// this one until it is woken, or for a pause.
    enum class Next { kGoOn, kLater, kLeave, kPause };

    asio::awaitable<void> StopInTurn();
    asio::awaitable<void> TellStoreInTurn();
    asio::awaitable<void> Work(CDestination& destination);
    asio::awaitable<void> ServeLane(CDestination& destination, const std::string& serial);
    asio::awaitable<Next> ServeBatch(CDestination& destination, const std::string& serial, Lane& lane);
    asio::awaitable<Next> ServeOne(CDestination& destination, const std::string& serial, Lane& lane,
                                   Prepared& prepared);
    asio::awaitable<Next> NotAccepted(const std::string& serial, Delivery& delivery, const DeliveryOutcome& outcome);
    asio::awaitable<Next> Hold(Delivery& delivery, const std::string& reason);
    asio::awaitable<std::shared_ptr<Batch>> NextBatch(const std::string& serial, Lane& lane);
    std::shared_ptr<Batch> Ahead(const std::string& serial, std::int64_t after);
    void Make(Batch& batch, const std::string& serial);
    static void Rewind(Lane& lane);
    void Build(Prepared& prepared) const;

    void Ready(const std::string& serial);
    void ReadyAfterPause(const std::string& serial, Lane& lane);
    void Leave(const std::string& serial, Lane& lane);
    void NoteAccepted(const std::string& serial, std::int64_t delivery);
    asio::awaitable<void> MarkSoon();
    void MarkAccepted();
    void Mark(std::vector<Accepted> accepted);
    void Marked(const std::vector<Accepted>& accepted);
    asio::awaitable<void> MarkAgain(std::vector<Accepted> accepted);
    asio::awaitable<void> MarkSurely(const DeliveryMark& mark);
    asio::awaitable<void> Sleep(std::chrono::milliseconds duration);
    asio::awaitable<void> WaitForSignal();
    void Signal();
    void NoteSuccess();
    void NoteProblem(const std::string& problem);

    const asio::any_io_executor executor_;
    const asio::strand<asio::any_io_executor> strand_;
    CStore& store_;
    CStoreReader reader_;
    const DestinationOptions options_;
    std::vector<std::unique_ptr<CDestination>> destinations_;
    Lanes lanes_;
    std::vector<Accepted> accepted_;  // the store is told of them together
    bool markingSoon_ = false;
    std::deque<std::string> ready_;
    asio::steady_timer signal_;
    CPause pause_;  ///< of the whole destination
    std::chrono::steady_clock::time_point notBefore_;
    std::size_t unmarked_ = 0;  ///< in all lanes
    std::size_t working_ = 0;
    bool stopping_ = false;
    mutable std::mutex mutex_;
    DeliveryStatus status_;
};

}  // namespace ZELPC
