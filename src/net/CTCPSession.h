#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "common/CSharedDescriptor.h"
#include "config/ISession.h"
#include "net/CPCMsg.h"
#include "net/CResultMarker.h"
#include "net/ILinkMonitor.h"
#include "net/Route.h"
#include "platform/Log.h"
#include "platform/Service.h"

namespace RMUP::Net {

/// One connection of a PC: a thread that reads packets and hands them to their routes, and a way for every other thread
/// to send to that PC. Lives as long as its thread or a sender needs it; its descriptor is closed when the thread has
/// ended and no other thread is in a call on it.
class CTCPSession : public QENFx::Service::Thread, public ISession, public std::enable_shared_from_this<CTCPSession> {
public:
    /// Takes the connected socket. All else outlives the session.
    CTCPSession(CDescriptor socket, const TCPRoutes& routes, ILinkMonitor* monitor, CResultMarker& results);
    ~CTCPSession() override { --count_; }

    /// Starts the detached thread; the session keeps itself alive until its thread has ended. Throws WorkException*.
    void Launch();

    int SendMessage(std::span<const std::uint8_t> packet) override;
    int SendErrorMessage(std::uint8_t subTag, std::uint8_t tag, PCError error) override;
    std::string GetClientIPAddr() const override;
    std::uint16_t GetClientPort() const override;
    bool HasPeerClosed() const override;
    void StopSession() override { Stop(); }
    void SetUpdateFlag(bool wanted) override { updateFlag_ = wanted; }
    bool GetUpdateFlag() const override { return updateFlag_; }

    /// Takes the PC's acknowledgement of a result.
    void AcknowledgeResult() { results_.Acknowledge(awaitedResults_); }

    /// How many sessions there are.
    static int Count() { return count_; }

    /// Receives one packet. Returns 0; -1 when the connection failed or ended; -2 when there is no connection.
    [[nodiscard]] int ReceiveMessage(CPCMsg& message);

    int Run() override;

private:
    [[nodiscard]] bool MoveFromDescriptorZero();
    void BecomeCurrentIfRegistered();
    [[nodiscard]] bool SetNonBlocking();
    void Serve();

    /// Reads exactly the span's size unless the peer closes before. Returns the bytes read, or -1 after an error line.
    int ReceiveBytes(const CDescriptor& socket, std::span<std::uint8_t> bytes);

    /// Sends the packet; fails, with errno, when the PC takes nothing of it for too long.
    bool SendBytes(const CDescriptor& socket, std::span<const std::uint8_t> packet, int& sent);
    static bool WaitAcknowledgement();

    QENFx::Log::FileLog* log_;
    const TCPRoutes& routes_;
    ILinkMonitor* const monitor_;
    std::atomic<bool> updateFlag_{false};
    std::shared_ptr<CTCPSession> self_;

    CResultMarker& results_;
    int awaitedResults_ = 0;  ///< the marker's

    static inline std::atomic<int> count_{0};

    CSharedDescriptor socket_;
};

}  // namespace RMUP::Net
