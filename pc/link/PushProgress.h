#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "wire/ImageCatalogue.h"

namespace ZELPC {

/// Who begins an update that comes from this PC.
enum class PushMethod {
    kOffer,      ///< this PC offers it; the analyzer's operator is asked
    kWhenAsked,  ///< SYS, APP and XML lie ready until the analyzer's operator asks the PC for an update
};

/// The steps of an update, in their order; each of the last four is an end.
enum class PushStep {
    kWaiting,     ///< offered or ready; the analyzer has not taken it yet
    kSending,     ///< images are on their way
    kInstalling,  ///< the analyzer has every image and writes them
    kInstalled,   ///< it reports the new versions
    kNotNeeded,   ///< it has these versions already, or newer ones
    kCancelled,
    kFailed,  ///< see `reason`
};

struct ImageProgress {
    std::int64_t sent = 0;
    std::int64_t size = 0;
    bool stored = false;  ///< the analyzer has said that it has the image whole
};

struct PushProgress {
    PushStep step = PushStep::kWaiting;
    std::map<ImageId, ImageProgress> images;  ///< what is sent; with kWhenAsked only what was asked for so far
    std::string reason;                       ///< for people; empty unless something went wrong

    bool IsOver() const { return step >= PushStep::kInstalled; }
};

[[nodiscard]] const char* TextOf(PushStep step);

}  // namespace ZELPC
