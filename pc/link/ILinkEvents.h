#pragma once

#include <memory>

#include "link/CReceivedResult.h"
#include "link/LinkStatus.h"
#include "link/PushProgress.h"

namespace ZELPC {

/// Who is told what happens on a link.
///
/// The calls of one link come one after another, on threads of the pool, never two at once; those of different links
/// run side by side. None may wait for anything: it would hold up a thread that serves every analyzer. None may throw.
/// A receiver may call its link from here.
class ILinkEvents {
public:
    virtual ~ILinkEvents() = default;

    /// The state changed, or what is known about the analyzer. Called at least once after the start and once at the
    /// end.
    virtual void OnStatus(const LinkStatus& status) = 0;

    /// A result came, maybe not for the first time. Nothing more is read from this analyzer while
    /// CReceivedResult::kMaxPending results of it are alive.
    virtual void OnResult(std::shared_ptr<CReceivedResult> result) = 0;

    /// What the analyzer tells about itself: after each registration, and after an update.
    virtual void OnInfo(const DeviceInfo& info) = 0;

    /// Another PC has registered in place of this one. The link leaves it the analyzer (LinkState::kTaken).
    virtual void OnTakenOver(const OtherPC& other) = 0;

    /// The update at hand went on: at most ten times a second, and at every step.
    virtual void OnPush(const PushProgress& progress) = 0;
};

}  // namespace ZELPC
