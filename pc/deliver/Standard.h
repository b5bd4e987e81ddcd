#pragma once

#include <string>
#include <string_view>

#include "deliver/DestinationOptions.h"

namespace ZELPC {

struct StandardText {
    std::string text;
    std::string error;  ///< why there is no text
};

/// Makes of the analyzer's text what a receiver that goes by the book expects: a message number of its own, names in
/// the header, value types, LOINC codes, escaped delimiters, dates. Values stay the analyzer's; a text that cannot be
/// read and written again without loss is refused, so that nothing gets lost on the way.
StandardText MakeStandard(std::string_view text, std::string_view controlId, const DestinationOptions& options);

}  // namespace ZELPC
