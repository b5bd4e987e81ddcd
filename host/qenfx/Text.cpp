#include "platform/Text.h"

#include <charconv>
#include <cstdarg>
#include <cstdio>

namespace QENFx::Common {

namespace {

constexpr std::size_t kMaxDigits = 9;

bool ReadNumber(std::string_view text, std::uint32_t& number) {
    if (text.empty() || text.size() > kMaxDigits) {
        return false;
    }
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

}  // namespace

void String::Format(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    va_list measured;
    va_copy(measured, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, measured);
    va_end(measured);
    // Built beside the old text, which may be among the arguments.
    std::string text;
    if (length > 0) {
        text.resize(static_cast<std::size_t>(length));
        std::vsnprintf(text.data(), text.size() + 1, format, arguments);
    }
    va_end(arguments);
    text_ = std::move(text);
}

Version::Version(std::string_view text) {
    std::array<std::uint32_t, 4> fields{};
    for (std::size_t i = 0; i < fields.size(); ++i) {
        const bool last = i + 1 == fields.size();
        const std::size_t end = last ? text.size() : text.find('.');
        if (end == std::string_view::npos || !ReadNumber(text.substr(0, end), fields[i])) {
            return;
        }
        text.remove_prefix(last ? end : end + 1);
    }
    fields_ = fields;
}

std::string Version::getVersion() const {
    char text[48];
    std::snprintf(text, sizeof text, "%u.%02u.%02u.%04u", fields_[0], fields_[1], fields_[2], fields_[3]);
    return text;
}

}  // namespace QENFx::Common
