#pragma once

#include <boost/asio/thread_pool.hpp>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "cli/CResultFolder.h"
#include "link/CLinkHub.h"
#include "link/ILinkEvents.h"

namespace ZELPC {

/// What the watches of one call have in common.
struct WatchSetting {
    bool json = false;
    boost::asio::io_context* context = nullptr;  ///< everything is shown on its one thread
    boost::asio::thread_pool* disk = nullptr;    ///< one thread: results are stored one after the other
    const CResultFolder* folder = nullptr;       ///< none: results are shown and not acknowledged
    std::function<void(Refusal)> stopped;        ///< one watch has come to its end
};

/// One analyzer that is watched: shows what happens on its link, and stores its results.
class CWatch : public ILinkEvents, public std::enable_shared_from_this<CWatch> {
public:
    CWatch(std::string host, WatchSetting setting);

    /// Watches over this link from now on.
    void Begin(std::shared_ptr<IAnalyzerLink> link);
    void End();

    void OnStatus(const LinkStatus& status) override;
    void OnResult(std::shared_ptr<CReceivedResult> result) override;
    void OnInfo(const DeviceInfo& info) override;
    void OnTakenOver(const OtherPC& other) override;
    void OnPush(const PushProgress&) override {}

private:
    /// What became of a result.
    struct Fate {
        std::string path;
        std::string problem;
        bool again = false;
        bool acknowledged = false;
    };

    boost::asio::awaitable<void> LookForUpdates();
    Fate Store(CReceivedResult& result) const;
    void ShowResult(const CReceivedResult& result, const Fate& fate) const;
    void Say(const std::string& text) const;

    const std::string host_;
    const WatchSetting setting_;
    std::shared_ptr<IAnalyzerLink> link_;
    LinkStatus status_;
    std::optional<DeviceInfo> info_;
    Refusal refusal_ = Refusal::kNone;
};

}  // namespace ZELPC
