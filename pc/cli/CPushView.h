#pragma once

#include <cstddef>
#include <map>
#include <string>

#include "link/PushProgress.h"

namespace ZELPC {

/// Shows an update as it goes: bars on a terminal, else a line at each step, or JSON.
class CPushView {
public:
    CPushView(std::string host, bool json) : host_(std::move(host)), json_(json) {}

    void Show(const PushProgress& progress);
    /// Says that an update is not called off any more, when that is so.
    [[nodiscard]] bool IsTooLateToCancel();

private:
    void ShowLines(const PushProgress& progress);
    void ShowBars(const PushProgress& progress);
    void ShowJson(const PushProgress& progress) const;

    const std::string host_;
    const bool json_;
    std::size_t barLines_ = 0;  ///< what stands on the terminal and is written over
    bool begun_ = false;
    PushStep step_ = PushStep::kWaiting;
    std::map<ImageId, bool> stored_;
};

/// The ExitStatus of an update that is over, after saying on standard error what went wrong.
[[nodiscard]] int StatusOf(const PushProgress& progress);

}  // namespace ZELPC
