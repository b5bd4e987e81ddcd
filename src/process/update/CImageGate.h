#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <set>

#include "config/CDeviceInfo.h"
#include "config/ISession.h"
#include "config/ImageInfo.h"
#include "process/update/COutputFile.h"

namespace RMUP::Process {

/// An image on its way from the PC into its temporary file. It belongs to the session that began it. Unless its file
/// was closed whole, nothing of it stays: neither the file nor what the image's record says of it.
class CImageTransfer {
public:
    /// Opens the temporary file; look at `file`. The record outlives the transfer.
    CImageTransfer(const std::shared_ptr<Net::ISession>& session, ImageInfo& image, std::int32_t size);
    CImageTransfer(const CImageTransfer&) = delete;
    CImageTransfer& operator=(const CImageTransfer&) = delete;
    ~CImageTransfer();

    /// Compares without taking part in the ownership, so that no session is torn down here.
    bool BelongsTo(const std::shared_ptr<Net::ISession>& session) const;

    /// After the last piece. False with errno when the file is not whole.
    [[nodiscard]] bool Close() { return closed_ = file.Close(); }

    ImageInfo& image;
    const std::int32_t size;    ///< bytes of image data that its header announces
    std::int32_t received = 0;  ///< bytes of image data that have come
    COutputFile file;

private:
    std::weak_ptr<Net::ISession> owner_;
    bool closed_ = false;
};

/// Holds the image that the PC is sending, between its packets, and keeps the threads of the PC's sessions and the
/// update worker from working on the image records and temporary files at the same time: handlers of the PC's packets
/// work inside a Visit, one after the other, and the worker lets them in only while it waits for the PC. A visit is as
/// long as the handler's work on the files; whoever sends something to anybody does so after it, because the other side
/// may take its time.
class CImageGate {
public:
    using SessionPtr = std::shared_ptr<Net::ISession>;
    using Transfer = std::unique_ptr<CImageTransfer>;

    explicit CImageGate(const CDeviceInfo& device) : device_(device) {}
    CImageGate(const CImageGate&) = delete;
    CImageGate& operator=(const CImageGate&) = delete;

    /// A handler's stay.
    class Visit {
    public:
        /// Waits until the visitor before has left.
        explicit Visit(CImageGate& gate);
        Visit(const Visit&) = delete;
        Visit& operator=(const Visit&) = delete;
        ~Visit();

        /// False while an update runs that takes nothing from the PC; the handler must change nothing then.
        bool IsWelcome() const { return welcome_; }

        /// Where the session's transfer is, empty between two images. Null when the visit is not welcome or another
        /// session's transfer is under way; that one is given up when this session is the current one. For the length
        /// of the visit.
        Transfer* TransferOf(const SessionPtr& session);

        /// The session's image is refused: what still comes of it, up to its last packet, is dropped without a word.
        void DropRest(const SessionPtr& session);

    private:
        CImageGate& gate_;
        bool welcome_;
    };

    /// Lets nobody in any more, waits until the visitor has left, and gives up a transfer under way.
    void Shut();

    /// Lets visitors in again; before the first Shut they are. No image counts as refused any more: a PC that leaves
    /// the rest of one away is heard in the next update.
    void Open();

    /// Waits until no visitor is inside, so that what a handler sets together is seen together; a second at most.
    void WaitIdle();

    /// Whether a packet of image data is the rest of a refused image.
    [[nodiscard]] bool IsDropped(const SessionPtr& session, bool last);

    /// Gives up the transfer of a session that ended. Called by the session's thread.
    void SessionEnded(const SessionPtr& session);

private:
    const CDeviceInfo& device_;
    std::mutex mutex_;
    std::condition_variable left_;
    bool open_ = true;
    bool visited_ = false;
    Transfer transfer_;  ///< the visitor's; without one, of whoever holds the lock
    std::set<std::weak_ptr<Net::ISession>, std::owner_less<>> dropped_;
};

}  // namespace RMUP::Process
