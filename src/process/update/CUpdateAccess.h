#pragma once

#include "process/update/CImageGate.h"
#include "process/update/CUpdateSlot.h"

namespace RMUP::Process {

/// Who may work on the image records and the temporary files: the update worker, of which there is one at a time, and,
/// while that waits for the PC or there is none, the handlers of the PC's packets.
class CUpdateAccess {
public:
    explicit CUpdateAccess(const CDeviceInfo& device) : gate_(device) {}

    CUpdateSlot& Slot() { return slot_; }
    CImageGate& Gate() { return gate_; }

private:
    CUpdateSlot slot_;
    CImageGate gate_;
};

}  // namespace RMUP::Process
