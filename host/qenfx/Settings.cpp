#include "qenfx/Settings.h"

#include <algorithm>

#include "qenfx/Blanks.h"

namespace Host {

namespace {

struct SettingsLine {
    std::string_view head;  // up to and with the equals sign
    std::string_view key;
    std::string_view value;
    std::string_view tail;  // behind the semicolon
};

std::optional<SettingsLine> SplitLine(std::string_view line) {
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) {
        return std::nullopt;
    }
    SettingsLine parts{line.substr(0, equals + 1), TrimBlanks(line.substr(0, equals)), line.substr(equals + 1), {}};
    if (parts.key.empty()) {
        return std::nullopt;
    }
    const std::size_t semicolon = parts.value.rfind(';');
    const bool ended = semicolon != std::string_view::npos;
    const std::size_t end = ended ? semicolon : parts.value.find_last_not_of(kBlanks) + 1;
    parts.tail = parts.value.substr(ended ? end + 1 : end);
    parts.value = parts.value.substr(0, end);
    return parts;
}

/// Takes the next line, with its line feed, off the content.
std::string_view NextLine(std::string_view& content) {
    const std::size_t end = content.find('\n');
    const std::string_view line = content.substr(0, end == std::string_view::npos ? end : end + 1);
    content.remove_prefix(line.size());
    return line;
}

}  // namespace

std::optional<std::string_view> FindSetting(std::string_view content, std::string_view key) {
    while (!content.empty()) {
        if (const auto parts = SplitLine(NextLine(content)); parts && parts->key == key) {
            return parts->value;
        }
    }
    return std::nullopt;
}

std::string MergeSettings(std::string_view content, std::vector<SettingsChange> changes) {
    std::string merged;
    while (!content.empty()) {
        const std::string_view line = NextLine(content);
        const auto parts = SplitLine(line);
        const auto change = std::find_if(changes.begin(), changes.end(),
                                         [&](const SettingsChange& each) { return parts && each.key == parts->key; });
        if (change == changes.end()) {
            merged += line;
        } else {
            merged.append(parts->head).append(change->value).append(";").append(parts->tail);
            changes.erase(change);
        }
    }
    if (!changes.empty() && !merged.empty() && merged.back() != '\n') {
        merged += '\n';
    }
    for (const auto& [key, value] : changes) {
        merged.append(key).append("=").append(value).append(";\n");
    }
    return merged;
}

}  // namespace Host
