#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/asio/steady_timer.hpp>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "link/CLinkSession.h"
#include "link/CRelease.h"
#include "link/PushProgress.h"
#include "wire/PCCommand.h"

namespace ZELPC {

/// One update on its way to an analyzer: offered or ready, sent image by image, and followed until the analyzer reports
/// the new versions. Used on its link's strand only.
class CPush : public std::enable_shared_from_this<CPush> {
public:
    using Report = std::function<void(const PushProgress&)>;

    CPush(const Strand& strand, std::shared_ptr<const CRelease> release, PushMethod method, Report report);

    /// Does all of it over `session` and, after the analyzer has restarted, over the sessions that follow. Fails
    /// without throwing.
    [[nodiscard]] boost::asio::awaitable<PushProgress> Run(std::shared_ptr<CLinkSession> session);

    /// A packet of the analyzer that belongs to an update.
    void Take(const Packet& packet);

    /// The link has registered again.
    void TakeSession(std::shared_ptr<CLinkSession> session);

    void Cancel();

    /// The link stops or lost the analyzer for good.
    void Fail(const std::string& reason);

private:
    using Clock = std::chrono::steady_clock;

    /// Thrown within Run where the update ends early.
    struct End {
        PushStep step;
        std::string reason;
        bool tellAnalyzer;  ///< it still expects something of this PC
    };

    boost::asio::awaitable<void> Offer();
    boost::asio::awaitable<void> ServeRequests();
    boost::asio::awaitable<void> CheckStillUpdating();
    boost::asio::awaitable<void> SendRequested(const Packet& request);
    void SendVersions();
    boost::asio::awaitable<void> SendImage(ImageId image);
    boost::asio::awaitable<void> FollowInstallation();
    boost::asio::awaitable<std::optional<DeviceInfo>> AskState();
    boost::asio::awaitable<std::optional<Packet>> Next(Clock::duration patience);
    boost::asio::awaitable<Packet> Expect(PCCommand command, Clock::duration patience, const char* otherwise);
    void CheckGoingOn() const;
    void Tell(PushStep step);
    void TellSometimes();

    const std::shared_ptr<const CRelease> release_;
    const PushMethod method_;
    const Report report_;
    std::shared_ptr<CLinkSession> session_;
    boost::asio::steady_timer wake_;
    std::deque<Packet> inbox_;
    PushProgress progress_;
    Clock::time_point told_;
    bool cancelled_ = false;
    bool looksInstalled_ = false;  ///< before anything was sent
    std::string failure_;
};

}  // namespace ZELPC
