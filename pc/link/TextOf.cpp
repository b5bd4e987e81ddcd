#include "link/CRelease.h"
#include "link/LinkStatus.h"
#include "link/PushProgress.h"

namespace ZELPC {

const char* TextOf(LinkState state) {
    switch (state) {
        case LinkState::kSearching:
            return "searching";
        case LinkState::kConnecting:
            return "connecting";
        case LinkState::kRegistering:
            return "registering";
        case LinkState::kRegistered:
            return "registered";
        case LinkState::kWaiting:
            return "waiting";
        case LinkState::kRefused:
            return "refused";
        case LinkState::kTaken:
            return "taken";
        case LinkState::kStopped:
            return "stopped";
    }
    return "";
}

const char* TextOf(Refusal refusal) {
    switch (refusal) {
        case Refusal::kNone:
            return "";
        case Refusal::kPassword:
            return "the administrator password is not correct";
        case Refusal::kAnalyzing:
            return "the analyzer is measuring";
        case Refusal::kUpdating:
            return "the analyzer is updating its software";
        case Refusal::kNoAnswer:
            return "the analyzer did not answer";
        case Refusal::kOther:
            return "the analyzer refused without a known reason";
    }
    return "";
}

const char* TextOf(PushStep step) {
    switch (step) {
        case PushStep::kWaiting:
            return "waiting";
        case PushStep::kSending:
            return "sending";
        case PushStep::kInstalling:
            return "installing";
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

const char* NameOf(ImageId image) {
    return Wire::RowOf(image).name;
}

}  // namespace ZELPC
