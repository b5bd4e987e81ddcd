#include <boost/asio/steady_timer.hpp>

#include "cli/CPushView.h"
#include "cli/CRunner.h"
#include "cli/Commands.h"
#include "cli/ExitStatus.h"
#include "cli/GatewayWork.h"
#include "cli/InfoText.h"
#include "cli/Output.h"
#include "cli/Password.h"
#include "link/CRelease.h"
#include "link/LinkError.h"
#include "link/NoThrow.h"

namespace ZELPC {

namespace asio = boost::asio;

namespace {

/// Waits for a link to be registered, and shows the update on it. Results stay at the analyzer meanwhile.
class CPushEvents : public ILinkEvents {
public:
    CPushEvents(asio::io_context& context, CPushView& view)
        : changed_(context, asio::steady_timer::time_point::max()), view_(view) {}

    void OnStatus(const LinkStatus& status) override {
        status_ = status;
        changed_.cancel();
    }
    void OnResult(std::shared_ptr<CReceivedResult>) override {}
    void OnInfo(const DeviceInfo&) override {}
    void OnTakenOver(const OtherPC&) override {}
    void OnPush(const PushProgress& progress) override { view_.Show(progress); }

    /// Waits until the link is registered, or has met with something that keeps it from that.
    asio::awaitable<LinkStatus> Settled() {
        while (status_.state == LinkState::kSearching || status_.state == LinkState::kConnecting ||
               status_.state == LinkState::kRegistering) {
            co_await changed_.async_wait(kNoThrow);
        }
        co_return status_;
    }

    asio::awaitable<void> Stopped() {
        while (status_.state != LinkState::kStopped) {
            co_await changed_.async_wait(kNoThrow);
        }
    }

    CPushView& View() { return view_; }

private:
    asio::steady_timer changed_;
    CPushView& view_;
    LinkStatus status_;
};

int Hindered(const LinkStatus& status) {
    std::string text = status.reason;
    if (status.otherPC) {
        text += ": " + PCText(*status.otherPC) + "; --take-over replaces it, and a gateway is asked with --gateway";
    }
    PrintProblem(text);
    return status.state == LinkState::kWaiting ? kUnreachable : kRefused;
}

asio::awaitable<int> PushOver(CRunner& runner, std::shared_ptr<IAnalyzerLink> link, CPushEvents& events,
                              std::shared_ptr<const CRelease> release, PushMethod method) {
    const LinkStatus status = co_await events.Settled();
    if (status.state == LinkState::kStopped) {
        co_return kInterrupted;
    }
    if (status.state != LinkState::kRegistered) {
        co_return Hindered(status);
    }
    release->RequireFor(status.model);
    runner.OnInterrupt([&events, link] {
        if (!events.View().IsTooLateToCancel()) {
            link->CancelPush();
        }
    });
    const PushProgress progress = co_await link->Push(release, method);
    co_return StatusOf(progress);
}

}  // namespace

int RunPush(const PushOptions& options) {
    if (!options.gateway.at.empty()) {
        return PushThroughGateway(options);
    }
    CRunner runner;
    return runner.Run(options.network, [&](CLinkHub& hub) -> asio::awaitable<int> {
        const auto release = std::make_shared<const CRelease>(CRelease::Read(options.folder));
        LinkSettings analyzer;
        analyzer.address = Resolve(options.host);
        analyzer.password = ReadPassword(options.password, options.host);
        analyzer.takeOver = options.takeOver;
        CPushView view(options.host, options.json);
        const auto events = std::make_shared<CPushEvents>(runner.Context(), view);
        const auto link = hub.Hold(analyzer, events);
        runner.OnInterrupt([link] { link->Stop(); });

        int status = kFailed;
        std::exception_ptr failure;
        try {
            status = co_await PushOver(runner, link, *events, release,
                                       options.whenAsked ? PushMethod::kWhenAsked : PushMethod::kOffer);
        } catch (...) {
            failure = std::current_exception();
        }
        link->Stop();
        co_await events->Stopped();
        if (failure) {
            std::rethrow_exception(failure);
        }
        co_return status;
    });
}

}  // namespace ZELPC
