#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>

#include "config/IPCSession.h"
#include "process/update/COutputFile.h"

namespace RMUP::Process {

/// An image on its way from the PC. It belongs to the session that began it.
struct ImageTransfer {
    std::weak_ptr<IPCSession> owner;
    bool begun = false;  ///< its first packet has come
    int image = -1;
    std::optional<COutputFile> file;  ///< none: what still comes of the image is dropped
    std::int32_t size = 0;            ///< bytes of image data that its header announces
    std::int32_t received = 0;        ///< bytes of image data that have come
};

/// Holds the image that the PC is sending, between its packets, and keeps the threads of the PC's sessions and the
/// update worker from working on the image records and temporary files at the same time: handlers of the PC's packets
/// work inside a Visit, and the worker lets them in only while it waits for the PC. No lock is held during a visit.
class CImageReceiver {
public:
    static CImageReceiver* GetInstance();

    CImageReceiver() = default;
    CImageReceiver(const CImageReceiver&) = delete;
    CImageReceiver& operator=(const CImageReceiver&) = delete;

    /// A handler's stay.
    class Visit {
    public:
        explicit Visit(CImageReceiver* receiver);
        Visit(const Visit&) = delete;
        Visit& operator=(const Visit&) = delete;
        ~Visit();

        /// False while an update runs that takes nothing from the PC; the handler must change nothing then.
        bool IsWelcome() const { return welcome_; }

        /// The session's transfer; a new one when there is none. Null when the visit is not welcome or another
        /// session's transfer is under way. For the length of the visit.
        ImageTransfer* TransferOf(const std::shared_ptr<IPCSession>& session);

        /// Forgets the session's transfer after its last packet.
        void Finish();

    private:
        CImageReceiver* receiver_;
        bool welcome_;
    };

    /// Lets nobody in any more, waits until the visitors have left, and closes and forgets a transfer under way.
    void Shut();

    /// Lets visitors in again; before the first Shut they are.
    void Open();

    /// Waits until no visitor is inside, so that what a handler sets together is seen together; a second at most.
    void WaitIdle();

    /// Closes and forgets the transfer of a session that ended. Called by the session's thread.
    void SessionEnded(const std::shared_ptr<IPCSession>& session);

private:
    std::mutex mutex_;
    std::condition_variable idle_;
    bool open_ = true;
    int visitors_ = 0;
    std::unique_ptr<ImageTransfer> transfer_;
};

}  // namespace RMUP::Process
