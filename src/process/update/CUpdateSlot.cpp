#include "process/update/CUpdateSlot.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <utility>

namespace RMUP::Process {

namespace {

constexpr std::chrono::seconds kEndWait{5};

enum class Worker { kNone, kRuns, kEnds };

struct State {
    std::mutex mutex;
    std::condition_variable ended;
    Worker worker = Worker::kNone;

    void WaitEnd(std::unique_lock<std::mutex>& lock) {
        ended.wait_for(lock, kEndWait, [this] { return worker != Worker::kEnds; });
    }
};

State& TheState() {
    // Never destroyed: a worker may still end while the process exits.
    static State* const state = std::make_unique<State>().release();
    return *state;
}

}  // namespace

std::optional<CUpdateSlot> CUpdateSlot::Take() {
    State& state = TheState();
    std::unique_lock lock(state.mutex);
    state.WaitEnd(lock);
    if (state.worker != Worker::kNone) {
        return std::nullopt;
    }
    state.worker = Worker::kRuns;
    return CUpdateSlot();
}

bool CUpdateSlot::IsTaken() {
    State& state = TheState();
    const std::lock_guard lock(state.mutex);
    return state.worker != Worker::kNone;
}

void CUpdateSlot::WaitEnd() {
    State& state = TheState();
    std::unique_lock lock(state.mutex);
    state.WaitEnd(lock);
}

void CUpdateSlot::BeginEnd() {
    State& state = TheState();
    const std::lock_guard lock(state.mutex);
    if (state.worker == Worker::kRuns) {
        state.worker = Worker::kEnds;
    }
}

CUpdateSlot::CUpdateSlot(CUpdateSlot&& other) noexcept : held_(std::exchange(other.held_, false)) {}

CUpdateSlot::~CUpdateSlot() {
    if (held_) {
        State& state = TheState();
        const std::lock_guard lock(state.mutex);
        state.worker = Worker::kNone;
        state.ended.notify_all();
    }
}

}  // namespace RMUP::Process
