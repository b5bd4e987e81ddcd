#include <algorithm>
#include <array>

#include "cli/CApiClient.h"
#include "cli/CInterrupt.h"
#include "cli/CPushView.h"
#include "cli/ExitStatus.h"
#include "cli/GatewayWork.h"
#include "cli/Output.h"
#include "link/CRelease.h"

namespace ZELPC {

using nlohmann::json;

namespace {

constexpr long kLookPause = 250;  // milliseconds

constexpr std::array kSteps{PushStep::kWaiting,   PushStep::kSending,   PushStep::kInstalling, PushStep::kInstalled,
                            PushStep::kNotNeeded, PushStep::kCancelled, PushStep::kFailed};

/// An update as the gateway tells of it.
PushProgress ReadProgress(const json& update) {
    PushProgress progress;
    progress.reason = update.at("reason").get<std::string>();
    const auto step = std::ranges::find(kSteps, update.at("step").get<std::string>(),
                                        [](PushStep known) { return std::string(TextOf(known)); });
    progress.step = step == kSteps.end() ? PushStep::kFailed : *step;
    for (const json& one : update.at("images")) {
        const auto image = std::ranges::find(Wire::kImagesOfPC, one.at("image").get<std::string>(),
                                             [](ImageId known) { return std::string(NameOf(known)); });
        if (image != Wire::kImagesOfPC.end()) {
            progress.images[*image] = {one.at("sent"), one.at("size"), one.at("stored")};
        }
    }
    return progress;
}

/// The serial number of the gateway's analyzer that is meant by its number or its address.
std::string SerialOf(const CApiClient& gateway, const std::string& host) {
    for (const json& one : gateway.Get("/api/analyzers")) {
        if (one.at("serial") == host || one.at("address") == host) {
            return one.at("serial");
        }
    }
    throw CApiError(kUnreachable, "the gateway has no analyzer " + host);
}

/// An act of which it is known what the gateway made of it, whatever comes meanwhile.
void Act(const CApiClient& gateway, const std::string& path, const json& body) {
    const CInterrupt::Hold hold;
    (void)gateway.Post(path, body);
}

/// An answer that Ctrl-C did not keep from coming.
json Ask(const CApiClient& gateway, const std::string& path) {
    for (;;) {
        try {
            return gateway.Get(path);
        } catch (const CApiError& error) {
            if (error.Status() != kInterrupted) {
                throw;
            }
        }
    }
}

int Follow(const CApiClient& gateway, const PushOptions& options) {
    const CInterrupt interrupt;
    const std::string path = "/api/analyzers/" + SerialOf(gateway, options.host);
    Act(gateway, path + "/push", {{"release", options.folder}, {"when_asked", options.whenAsked}});
    CPushView view(options.host, options.json);
    bool calledOff = false;
    std::string shown;
    for (;;) {
        const json update = Ask(gateway, path).at("update");
        const PushProgress progress = ReadProgress(update);
        if (std::string now = update.dump(); now != shown) {
            view.Show(progress);
            shown = std::move(now);
        }
        if (progress.IsOver()) {
            return StatusOf(progress);
        }
        if (interrupt.Came() && !calledOff) {
            calledOff = true;
            if (!view.IsTooLateToCancel()) {
                Act(gateway, path + "/cancel", json::object());
            }
        }
        CInterrupt::Sleep(kLookPause);
    }
}

}  // namespace

int PushThroughGateway(const PushOptions& options) {
    return AskGateway(options.gateway, [&options](const CApiClient& gateway) { return Follow(gateway, options); });
}

}  // namespace ZELPC
