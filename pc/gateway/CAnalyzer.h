#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "link/IAnalyzerLink.h"
#include "store/CStore.h"

namespace ZELPC {

/// What the gateway knows of one analyzer.
struct AnalyzerView {
    LinkSettings settings;
    LinkStatus status;
    std::optional<DeviceInfo> info;
    std::optional<PushProgress> push;
    std::int64_t results = 0;     ///< since the start, repeated ones included
    std::int64_t lastResult = 0;  ///< milliseconds since 1970; 0: none yet
};

/// Receives what happens on one analyzer's link: keeps its results, acknowledges those that are kept, and remembers the
/// rest for the page.
class CAnalyzer : public ILinkEvents, public std::enable_shared_from_this<CAnalyzer> {
public:
    /// `changed` is told after every change, on any thread; it must not wait.
    CAnalyzer(CStore& store, LinkSettings settings, std::function<void(const CAnalyzer&)> changed)
        : store_(store), changed_(std::move(changed)) {
        view_.settings = std::move(settings);
        view_.status.address = view_.settings.address;
        view_.status.serial = view_.settings.serial;
    }

    void OnStatus(const LinkStatus& status) override;
    void OnResult(std::shared_ptr<CReceivedResult> result) override;
    void OnInfo(const DeviceInfo& info) override;
    void OnTakenOver(const OtherPC& other) override;
    void OnPush(const PushProgress& progress) override;

    AnalyzerView View() const;

    /// An update is about to be sent: its state is a new one from now on. False while another one is under way.
    [[nodiscard]] bool BeginPush();

private:
    std::string Name() const;
    void Kept(CReceivedResult& result, const AppendOutcome& outcome);

    CStore& store_;
    const std::function<void(const CAnalyzer&)> changed_;
    mutable std::mutex mutex_;
    AnalyzerView view_;
};

}  // namespace ZELPC
