#pragma once

#include <string_view>

namespace Host {

inline constexpr std::string_view kBlanks = " \t\r\n\v\f";

/// The text without the blanks around it.
[[nodiscard]] inline std::string_view TrimBlanks(std::string_view text) {
    text.remove_suffix(text.size() - (text.find_last_not_of(kBlanks) + 1));
    text.remove_prefix(text.empty() ? 0 : text.find_first_not_of(kBlanks));
    return text;
}

}  // namespace Host
