#include "process/update/CUpdateSlot.h"

#include <utility>

namespace RMUP::Process {

std::atomic<bool> CUpdateSlot::taken_{false};

std::optional<CUpdateSlot> CUpdateSlot::Take() {
    if (taken_.exchange(true)) {
        return std::nullopt;
    }
    return CUpdateSlot();
}

CUpdateSlot::CUpdateSlot(CUpdateSlot&& other) noexcept : held_(std::exchange(other.held_, false)) {}

CUpdateSlot::~CUpdateSlot() {
    if (held_) {
        taken_ = false;
    }
}

}  // namespace RMUP::Process
