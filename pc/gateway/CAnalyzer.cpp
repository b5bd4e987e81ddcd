#include "gateway/CAnalyzer.h"

#include <spdlog/spdlog.h>

#include "base/Clock.h"

namespace ZELPC {

AnalyzerView CAnalyzer::View() const {
    const std::lock_guard lock(mutex_);
    return view_;
}

std::string CAnalyzer::Name() const {
    const std::lock_guard lock(mutex_);
    return view_.status.serial.empty() ? view_.status.address.to_string() : view_.status.serial;
}

void CAnalyzer::OnStatus(const LinkStatus& status) {
    {
        const std::lock_guard lock(mutex_);
        view_.status = status;
    }
    spdlog::info("{} at {}: {}{}{}", Name(), status.address.to_string(), TextOf(status.state),
                 status.reason.empty() ? "" : ": ", status.reason);
    changed_(*this);
}

void CAnalyzer::OnResult(std::shared_ptr<CReceivedResult> result) {
    {
        const std::lock_guard lock(mutex_);
        ++view_.results;
        view_.lastResult = NowMilliseconds();
    }
    store_.Append({result->Serial(), result->Text(), NowMilliseconds()},
                  [self = shared_from_this(), result](const AppendOutcome& outcome) { self->Kept(*result, outcome); });
}

void CAnalyzer::Kept(CReceivedResult& result, const AppendOutcome& outcome) {
    switch (outcome.status) {
        case AppendStatus::kStored: {
            const bool acknowledged = result.Acknowledge();
            spdlog::info("{}: result {} stored{}", result.Serial(), outcome.id,
                         acknowledged ? "" : "; too late to acknowledge it, it will come once more");
            break;
        }
        case AppendStatus::kAside:
            spdlog::error("{}: put aside and not acknowledged: {}", result.Serial(), outcome.reason);
            break;
        case AppendStatus::kFailed:
            spdlog::error("{}: a result is not stored and not acknowledged: {}", result.Serial(), outcome.reason);
            break;
    }
    changed_(*this);
}

void CAnalyzer::OnInfo(const DeviceInfo& info) {
    {
        const std::lock_guard lock(mutex_);
        view_.info = info;
    }
    changed_(*this);
}

void CAnalyzer::OnTakenOver(const OtherPC& other) {
    spdlog::warn("{}: taken over by the PC {}", Name(), other.name);
}

bool CAnalyzer::BeginPush() {
    const std::lock_guard lock(mutex_);
    if (view_.push.has_value() && !view_.push->IsOver()) {
        return false;
    }
    view_.push.emplace();
    return true;
}

void CAnalyzer::OnPush(const PushProgress& progress) {
    {
        const std::lock_guard lock(mutex_);
        view_.push = progress;
    }
    changed_(*this);
}

}  // namespace ZELPC
