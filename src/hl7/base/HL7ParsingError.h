#pragma once

#include <initializer_list>
#include <string_view>

namespace HL7v251::Base {

/// Writes one line, put together from `pieces`, to the standard error stream: the only diagnostics of the model.
void WriteParsingError(std::initializer_list<std::string_view> pieces);

}  // namespace HL7v251::Base
