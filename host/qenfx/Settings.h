#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Host {

struct SettingsChange {
    std::string key;
    std::string value;
};

/// The value of a key in lines of the form `Key=Value;`, within the content; nothing when no line has the key. Blanks
/// around the key do not count; the value is everything up to the last semicolon of the line, or to its end without
/// trailing blanks. The first line of a key counts. Other lines, also those with an empty key, are passed over.
[[nodiscard]] std::optional<std::string_view> FindSetting(std::string_view content, std::string_view key);

/// The content with the changed values exchanged in place, what the lines hold beside the value kept, and the keys that
/// were not there appended in the order of the changes.
[[nodiscard]] std::string MergeSettings(std::string_view content, std::vector<SettingsChange> changes);

}  // namespace Host
