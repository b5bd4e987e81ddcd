#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "packet/DeviceInfo.h"

namespace ZELPC {

/// "192.168.40.20 "LabLink"".
[[nodiscard]] std::string PCText(const OtherPC& pc);
[[nodiscard]] nlohmann::json PCJson(const OtherPC& pc);

/// Everything that an analyzer told about itself, a line an item.
[[nodiscard]] std::vector<std::string> InfoText(const DeviceInfo& info);

/// The same; what it did not tell is absent.
[[nodiscard]] nlohmann::json InfoJson(const DeviceInfo& info);

}  // namespace ZELPC
