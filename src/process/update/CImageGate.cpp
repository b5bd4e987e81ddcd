#include "process/update/CImageGate.h"

#include <unistd.h>

#include <chrono>

namespace RMUP::Process {

namespace {

constexpr std::chrono::seconds kIdleWait{1};

}  // namespace

CImageTransfer::CImageTransfer(const std::shared_ptr<Net::ISession>& session, ImageInfo& record, std::int32_t announced)
    : image(record), size(announced), file(record.RawPath.c_str()), owner_(session) {}

CImageTransfer::~CImageTransfer() {
    if (!closed_) {
        image.FileSize = 0;
        image.Download = 0;
        unlink(image.RawPath.c_str());
    }
}

bool CImageTransfer::BelongsTo(const std::shared_ptr<Net::ISession>& session) const {
    return !owner_.owner_before(session) && !session.owner_before(owner_);
}

CImageGate::Visit::Visit(CImageGate& gate) : gate_(gate) {
    std::unique_lock lock(gate_.mutex_);
    gate_.left_.wait(lock, [this] { return !gate_.visited_ || !gate_.open_; });
    welcome_ = gate_.open_;
    gate_.visited_ = gate_.visited_ || welcome_;
}

CImageGate::Visit::~Visit() {
    if (welcome_) {
        const std::lock_guard lock(gate_.mutex_);
        gate_.visited_ = false;
        gate_.left_.notify_all();
    }
}

CImageGate::Transfer* CImageGate::Visit::TransferOf(const SessionPtr& session) {
    if (!welcome_) {
        return nullptr;
    }
    Transfer& transfer = gate_.transfer_;
    if (transfer != nullptr && !transfer->BelongsTo(session)) {
        if (gate_.device_.GetSession() != session) {
            return nullptr;
        }
        transfer.reset();
    }
    return &transfer;
}

void CImageGate::Visit::DropRest(const SessionPtr& session) {
    const std::lock_guard lock(gate_.mutex_);
    // Not what an opening has made void since.
    if (welcome_ || !gate_.open_) {
        gate_.dropped_.insert(session);
    }
}

void CImageGate::Shut() {
    Transfer given;
    std::unique_lock lock(mutex_);
    open_ = false;
    left_.notify_all();
    left_.wait(lock, [this] { return !visited_; });
    given.swap(transfer_);
}

void CImageGate::Open() {
    const std::lock_guard lock(mutex_);
    open_ = true;
    dropped_.clear();
}

void CImageGate::WaitIdle() {
    std::unique_lock lock(mutex_);
    left_.wait_for(lock, kIdleWait, [this] { return !visited_; });
}

bool CImageGate::IsDropped(const SessionPtr& session, bool last) {
    const std::lock_guard lock(mutex_);
    const auto dropped = dropped_.find(session);
    if (dropped == dropped_.end()) {
        return false;
    }
    if (last) {
        dropped_.erase(dropped);
    }
    return true;
}

void CImageGate::SessionEnded(const SessionPtr& session) {
    {
        const std::lock_guard lock(mutex_);
        dropped_.erase(session);
    }
    // What is shut holds no transfer.
    Visit visit(*this);
    if (visit.IsWelcome() && transfer_ != nullptr && transfer_->BelongsTo(session)) {
        transfer_.reset();
    }
}

}  // namespace RMUP::Process
