#include "cli/CPushView.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "cli/ExitStatus.h"
#include "cli/Output.h"
#include "link/CRelease.h"

namespace ZELPC {

using nlohmann::json;

namespace {

const char* Sentence(PushStep step) {
    switch (step) {
        case PushStep::kWaiting:
            return "waiting for the analyzer to take the update";
        case PushStep::kSending:
            return "sending";
        case PushStep::kInstalling:
            return "the analyzer has everything and installs it";
        case PushStep::kInstalled:
            return "installed";
        case PushStep::kNotNeeded:
            return "not needed";
        case PushStep::kCancelled:
            return "cancelled";
        case PushStep::kFailed:
            return "failed";
    }
    return "";
}

int Percent(const ImageProgress& image) {
    return image.size == 0 ? 100 : static_cast<int>(image.sent * 100 / image.size);
}

std::string Bar(ImageId image, const ImageProgress& progress) {
    constexpr int kWidth = 40;
    const int percent = Percent(progress);
    const auto full = static_cast<std::size_t>(percent * kWidth / 100);
    return Pad(NameOf(image), 4) + "[" + std::string(full, '#') + std::string(kWidth - full, '.') + "] " +
           std::to_string(percent) + "%" + (progress.stored ? " stored" : "");
}

}  // namespace

void CPushView::Show(const PushProgress& progress) {
    if (json_) {
        ShowJson(progress);
    } else if (IsTerminal()) {
        ShowBars(progress);
    } else {
        ShowLines(progress);
    }
    begun_ = true;
    step_ = progress.step;
}

bool CPushView::IsTooLateToCancel() {
    if (step_ != PushStep::kInstalling) {
        return false;
    }
    barLines_ = 0;
    PrintProblem("the analyzer has everything and goes on by itself; Ctrl-C once more ends only the looking on");
    return true;
}

void CPushView::ShowLines(const PushProgress& progress) {
    for (const auto& [image, state] : progress.images) {
        if (state.stored && !stored_[image]) {
            stored_[image] = true;
            PrintLine(std::string(NameOf(image)) + " stored, " + std::to_string(state.size) + " bytes");
        }
    }
    if (!begun_ || step_ != progress.step) {
        PrintLine(Sentence(progress.step));
    }
}

void CPushView::ShowBars(const PushProgress& progress) {
    std::string text;
    if (barLines_ > 0) {
        text = "\x1b[" + std::to_string(barLines_) + "A";
    }
    for (const auto& [image, state] : progress.images) {
        text += "\x1b[K" + Bar(image, state) + "\n";
    }
    text += "\x1b[K" + std::string(Sentence(progress.step)) + "\n";
    barLines_ = progress.images.size() + 1;
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

void CPushView::ShowJson(const PushProgress& progress) const {
    json images = json::object();
    for (const auto& [image, state] : progress.images) {
        images[NameOf(image)] = {{"sent", state.sent}, {"size", state.size}, {"stored", state.stored}};
    }
    json object = {{"event", "push"}, {"host", host_}, {"step", TextOf(progress.step)}, {"images", std::move(images)}};
    if (!progress.reason.empty()) {
        object["reason"] = progress.reason;
    }
    PrintJson(object);
}

int StatusOf(const PushProgress& progress) {
    if (!progress.reason.empty()) {
        PrintProblem(progress.reason);
    }
    switch (progress.step) {
        case PushStep::kInstalled:
        case PushStep::kNotNeeded:
            return kDone;
        case PushStep::kCancelled:
            return kInterrupted;
        default:
            return kFailed;
    }
}

}  // namespace ZELPC
