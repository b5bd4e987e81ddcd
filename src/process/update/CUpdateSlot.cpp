#include "process/update/CUpdateSlot.h"

#include <chrono>
#include <utility>

namespace RMUP::Process {

namespace {

constexpr std::chrono::seconds kEndWait{5};

}  // namespace

std::optional<CUpdateSlot::Hold> CUpdateSlot::Take() {
    std::unique_lock lock(mutex_);
    WaitEnd(lock);
    if (worker_ != Worker::kNone) {
        return std::nullopt;
    }
    worker_ = Worker::kRuns;
    return std::optional<Hold>(std::in_place, *this);
}

bool CUpdateSlot::IsTaken() {
    const std::lock_guard lock(mutex_);
    return worker_ != Worker::kNone;
}

void CUpdateSlot::WaitEnd() {
    std::unique_lock lock(mutex_);
    WaitEnd(lock);
}

void CUpdateSlot::WaitEnd(std::unique_lock<std::mutex>& lock) {
    ended_.wait_for(lock, kEndWait, [this] { return worker_ != Worker::kEnds; });
}

void CUpdateSlot::BeginEnd() {
    const std::lock_guard lock(mutex_);
    if (worker_ == Worker::kRuns) {
        worker_ = Worker::kEnds;
    }
}

CUpdateSlot::Hold::Hold(Hold&& other) noexcept : slot_(std::exchange(other.slot_, nullptr)) {}

CUpdateSlot::Hold::~Hold() {
    if (slot_ != nullptr) {
        const std::lock_guard lock(slot_->mutex_);
        slot_->worker_ = Worker::kNone;
        slot_->ended_.notify_all();
    }
}

}  // namespace RMUP::Process
