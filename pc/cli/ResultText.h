#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "result/LabResult.h"

namespace ZELPC {

/// A result readably: who and what, then a row a value.
[[nodiscard]] std::vector<std::string> ResultText(const LabResult& result);

/// The same for programs; what the analyzer did not say is absent.
[[nodiscard]] nlohmann::json ResultJson(const LabResult& result);

}  // namespace ZELPC
