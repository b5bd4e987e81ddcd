#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace Host {

/// What a settings file holds, by key.
using Settings = std::map<std::string, std::string, std::less<>>;

struct SettingsChange {
    std::string key;
    std::string value;
};

/// Reads lines of the form `Key=Value;`. Blanks around the key do not count; the value is everything up to the last
/// semicolon of the line, or to its end without trailing blanks. The first line of a key counts. Other lines, also
/// those with an empty key, are passed over.
[[nodiscard]] Settings ReadSettings(std::string_view content);

/// The content with the changed values exchanged in place, what the lines hold beside the value kept, and the keys that
/// were not there appended in the order of the changes.
[[nodiscard]] std::string MergeSettings(std::string_view content, std::vector<SettingsChange> changes);

}  // namespace Host
