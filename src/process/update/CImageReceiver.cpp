#include "process/update/CImageReceiver.h"

#include <chrono>

namespace RMUP::Process {

namespace {

constexpr std::chrono::seconds kIdleWait{1};

/// Compares without taking part in the ownership, so that no session is torn down here.
bool BelongsTo(const ImageTransfer& transfer, const std::shared_ptr<IPCSession>& session) {
    return !transfer.owner.owner_before(session) && !session.owner_before(transfer.owner);
}

}  // namespace

CImageReceiver* CImageReceiver::GetInstance() {
    // Never destroyed: sessions may still receive while the process exits.
    static CImageReceiver* const instance = std::make_unique<CImageReceiver>().release();
    return instance;
}

CImageReceiver::Visit::Visit(CImageReceiver* receiver) : receiver_(receiver) {
    const std::lock_guard lock(receiver_->mutex_);
    welcome_ = receiver_->open_;
    receiver_->visitors_ += welcome_ ? 1 : 0;
}

CImageReceiver::Visit::~Visit() {
    const std::lock_guard lock(receiver_->mutex_);
    receiver_->visitors_ -= welcome_ ? 1 : 0;
    receiver_->idle_.notify_all();
}

ImageTransfer* CImageReceiver::Visit::TransferOf(const std::shared_ptr<IPCSession>& session) {
    // Declared before the lock: a file is closed without it.
    std::unique_ptr<ImageTransfer> forgotten;
    const std::lock_guard lock(receiver_->mutex_);
    std::unique_ptr<ImageTransfer>& transfer = receiver_->transfer_;
    if (!welcome_) {
        return nullptr;
    }
    if (transfer != nullptr && transfer->owner.expired()) {
        forgotten.swap(transfer);
    }
    if (transfer == nullptr) {
        transfer = std::make_unique<ImageTransfer>();
        transfer->owner = session;
    }
    return BelongsTo(*transfer, session) ? transfer.get() : nullptr;
}

void CImageReceiver::Visit::Finish() {
    std::unique_ptr<ImageTransfer> forgotten;
    const std::lock_guard lock(receiver_->mutex_);
    forgotten.swap(receiver_->transfer_);
}

void CImageReceiver::Shut() {
    std::unique_ptr<ImageTransfer> forgotten;
    std::unique_lock lock(mutex_);
    open_ = false;
    idle_.wait(lock, [this] { return visitors_ == 0; });
    forgotten.swap(transfer_);
}

void CImageReceiver::Open() {
    const std::lock_guard lock(mutex_);
    open_ = true;
}

void CImageReceiver::WaitIdle() {
    std::unique_lock lock(mutex_);
    idle_.wait_for(lock, kIdleWait, [this] { return visitors_ == 0; });
}

void CImageReceiver::SessionEnded(const std::shared_ptr<IPCSession>& session) {
    std::unique_ptr<ImageTransfer> forgotten;
    const std::lock_guard lock(mutex_);
    if (transfer_ != nullptr && BelongsTo(*transfer_, session)) {
        forgotten.swap(transfer_);
    }
}

}  // namespace RMUP::Process
