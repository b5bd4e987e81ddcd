#pragma once

#include <boost/asio/steady_timer.hpp>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "link/CDatagramPort.h"
#include "link/CLinkSession.h"
#include "link/CPush.h"
#include "link/IAnalyzerLink.h"
#include "link/IDatagramReceiver.h"

namespace ZELPC {

/// The link to one analyzer: see IAnalyzerLink. One coroutine, Run, goes through the states; what comes from outside
/// wakes it.
class CAnalyzerLink : public IAnalyzerLink,
                      public IDatagramReceiver,
                      public std::enable_shared_from_this<CAnalyzerLink> {
public:
    CAnalyzerLink(std::shared_ptr<CDatagramPort> port, LinkSettings settings, std::shared_ptr<ILinkEvents> events);

    void Start();

    LinkStatus Status() const override;
    boost::asio::awaitable<DeviceInfo> GetInfo(std::uint16_t items) override;
    boost::asio::awaitable<void> Unregister() override;
    boost::asio::awaitable<PushProgress> Push(std::shared_ptr<const CRelease> release, PushMethod method) override;
    void CancelPush() override;
    void Stop() override;

    void OnScanAnswer(const ScanAnswer& answer, boost::asio::ip::address_v4 from) override;
    void OnAlive() override;
    void OnOtherPC() override;

private:
    using Clock = std::chrono::steady_clock;

    /// A state, why it came about, and after how long to try again.
    struct Setback {
        LinkState state = LinkState::kWaiting;
        std::chrono::milliseconds pause{0};
        std::string reason = {};
        Refusal refusal = Refusal::kNone;
        std::optional<OtherPC> other = {};
    };

    static constexpr std::size_t kNameLength = 10;

    boost::asio::awaitable<void> Run();
    boost::asio::awaitable<Setback> Attempt();
    boost::asio::awaitable<void> Locate();
    boost::asio::awaitable<bool> Ask(bool everywhere);
    std::optional<OtherPC> Occupant(const DeviceInfo& info) const;
    boost::asio::awaitable<std::optional<Setback>> Register();
    boost::asio::awaitable<Setback> Serve();
    boost::asio::awaitable<void> BeginsToCount();
    Setback Lose(const OtherPC& other);
    static Setback TakenBy(const OtherPC& other);
    boost::asio::awaitable<void> CheckRegistration();
    boost::asio::awaitable<void> Pause(Setback setback);
    void TakeSighting(const ScanAnswer& answer, boost::asio::ip::address_v4 from);
    void TakeUpdatePacket(const Packet& packet);
    void Tell(Setback setback);
    void Finish();

    std::shared_ptr<CLinkSession> OpenSession() const;

    const std::shared_ptr<CDatagramPort> port_;
    const LinkSettings settings_;
    const Strand strand_;
    const std::shared_ptr<ResultSlots> slots_;
    std::shared_ptr<ILinkEvents> events_;
    boost::asio::steady_timer timer_;  ///< pauses and waits for an answer; cancelled to go on at once

    boost::asio::ip::address_v4 address_;
    std::string serial_;
    std::optional<ScanAnswer> sighting_;  ///< what the analyzer said to the scan at hand
    std::shared_ptr<CLinkSession> session_;
    std::shared_ptr<CPush> push_;
    std::optional<OtherPC> takenBy_;
    bool stopping_ = false;
    bool registered_ = false;
    bool held_ = false;  ///< it was this PC's, until somebody else is found to have it
    bool checking_ = false;
    bool rejoining_ = false;  ///< registered just now; the next connection needs no registration
    bool reachable_ = false;  ///< the analyzer answered the last scan
    bool mayTakeOver_;
    int failures_ = 0;

    mutable std::mutex statusMutex_;
    LinkStatus status_;
};

}  // namespace ZELPC
