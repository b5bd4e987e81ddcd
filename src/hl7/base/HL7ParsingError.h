#pragma once

#include <initializer_list>
#include <string_view>

namespace HL7v251::Base {

/// Writes one line, put together from `pieces`, to the standard error stream: the only diagnostics of the model.
void WriteParsingError(std::initializer_list<std::string_view> pieces);

/// Says that an occurrence of the segment or group `name` could not be read.
void WriteOccurrenceError(std::string_view name);

}  // namespace HL7v251::Base
