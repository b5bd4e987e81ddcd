#include "process/update/CImageReceiver.h"

#include <unistd.h>

#include <chrono>

#include "config/CDeviceInfo.h"

namespace RMUP::Process {

namespace {

constexpr std::chrono::seconds kIdleWait{1};

}  // namespace

CImageTransfer::CImageTransfer(const std::shared_ptr<IPCSession>& session, ImageInfo& record, std::int32_t announced)
    : image(record), size(announced), file(record.RawPath.c_str()), owner_(session) {}

CImageTransfer::~CImageTransfer() {
    if (!closed_) {
        image.FileSize = 0;
        image.Download = 0;
        unlink(image.RawPath.c_str());
    }
}

bool CImageTransfer::BelongsTo(const std::shared_ptr<IPCSession>& session) const {
    return !owner_.owner_before(session) && !session.owner_before(owner_);
}

CImageReceiver* CImageReceiver::GetInstance() {
    // Never destroyed: sessions may still receive while the process exits.
    static CImageReceiver* const instance = std::make_unique<CImageReceiver>().release();
    return instance;
}

CImageReceiver::Visit::Visit(CImageReceiver* receiver) : receiver_(receiver) {
    std::unique_lock lock(receiver_->mutex_);
    receiver_->left_.wait(lock, [this] { return !receiver_->visited_ || !receiver_->open_; });
    welcome_ = receiver_->open_;
    receiver_->visited_ = receiver_->visited_ || welcome_;
}

CImageReceiver::Visit::~Visit() {
    if (welcome_) {
        const std::lock_guard lock(receiver_->mutex_);
        receiver_->visited_ = false;
        receiver_->left_.notify_all();
    }
}

CImageReceiver::Transfer* CImageReceiver::Visit::TransferOf(const SessionPtr& session) {
    if (!welcome_) {
        return nullptr;
    }
    Transfer& transfer = receiver_->transfer_;
    if (transfer != nullptr && !transfer->BelongsTo(session)) {
        if (CDeviceInfo::GetInstance()->GetSession() != session) {
            return nullptr;
        }
        transfer.reset();
    }
    return &transfer;
}

void CImageReceiver::Visit::DropRest(const SessionPtr& session) {
    const std::lock_guard lock(receiver_->mutex_);
    // Not what an opening has made void since.
    if (welcome_ || !receiver_->open_) {
        receiver_->dropped_.insert(session);
    }
}

void CImageReceiver::Shut() {
    Transfer given;
    std::unique_lock lock(mutex_);
    open_ = false;
    left_.notify_all();
    left_.wait(lock, [this] { return !visited_; });
    given.swap(transfer_);
}

void CImageReceiver::Open() {
    const std::lock_guard lock(mutex_);
    open_ = true;
    dropped_.clear();
}

void CImageReceiver::WaitIdle() {
    std::unique_lock lock(mutex_);
    left_.wait_for(lock, kIdleWait, [this] { return !visited_; });
}

bool CImageReceiver::IsDropped(const SessionPtr& session, bool last) {
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

void CImageReceiver::SessionEnded(const SessionPtr& session) {
    {
        const std::lock_guard lock(mutex_);
        dropped_.erase(session);
    }
    // What is shut holds no transfer.
    Visit visit(this);
    if (visit.IsWelcome() && transfer_ != nullptr && transfer_->BelongsTo(session)) {
        transfer_.reset();
    }
}

}  // namespace RMUP::Process
