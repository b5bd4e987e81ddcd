#pragma once

#include <memory>
#include <mutex>
#include <utility>

#include "common/CDescriptor.h"

/// A descriptor that one thread opens and closes while others are in calls on it. It is closed when it was replaced and
/// the last of these calls is over, so that a number that was given to another file is never written to.
class CSharedDescriptor {
public:
    using Held = std::shared_ptr<const CDescriptor>;

    CSharedDescriptor() = default;
    explicit CSharedDescriptor(CDescriptor descriptor) { Replace(std::move(descriptor)); }
    CSharedDescriptor(const CSharedDescriptor&) = delete;
    CSharedDescriptor& operator=(const CSharedDescriptor&) = delete;

    /// What is open now, for the length of one call; never null, but it may be closed. From any thread.
    [[nodiscard]] Held Hold() const {
        const std::lock_guard lock(mutex_);
        return held_;
    }

    [[nodiscard]] bool IsOpen() const { return Hold()->IsOpen(); }

    /// Replaces it, without waiting for calls on the one before. From any thread.
    void Replace(CDescriptor descriptor = {}) {
        auto replaced = std::make_shared<const CDescriptor>(std::move(descriptor));
        // Swapped, so that the one before is closed after the lock is gone.
        const std::lock_guard lock(mutex_);
        held_.swap(replaced);
    }

private:
    mutable std::mutex mutex_;
    Held held_ = std::make_shared<const CDescriptor>();  ///< behind mutex_
};
