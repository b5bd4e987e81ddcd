#include "platform/Text.h"

#include <array>
#include <charconv>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

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

String::String() : fields_{std::make_unique<std::string>().release(), {}} {}

String::~String() {
    const std::unique_ptr<std::string> owned(fields_.content);
}

const char* String::c_str() const {
    return fields_.content->c_str();
}

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
    *fields_.content = std::move(text);
}

struct Version::Content {
    explicit Content(std::string_view given) {
        Read(given);
        std::snprintf(text, sizeof text, "%u.%02u.%02u.%04u", fields[0], fields[1], fields[2], fields[3]);
    }

    std::array<std::uint32_t, 4> fields{};
    char text[48];

private:
    void Read(std::string_view given) {
        std::array<std::uint32_t, 4> read{};
        for (std::size_t i = 0; i < read.size(); ++i) {
            const bool last = i + 1 == read.size();
            const std::size_t end = last ? given.size() : given.find('.');
            if (end == std::string_view::npos || !ReadNumber(given.substr(0, end), read[i])) {
                return;
            }
            given.remove_prefix(last ? end : end + 1);
        }
        fields = read;
    }
};

Version::Version(const char* text) : fields_{std::make_unique<Content>(text).release(), {}} {}

Version::~Version() {
    const std::unique_ptr<Content> owned(fields_.content);
}

Version& Version::operator=(const char* text) {
    *fields_.content = Content(text);
    return *this;
}

const char* Version::getVersion() const {
    return fields_.content->text;
}

bool Version::operator<(const Version& other) const {
    return fields_.content->fields < other.fields_.content->fields;
}

bool Version::operator<=(const Version& other) const {
    return fields_.content->fields <= other.fields_.content->fields;
}

bool Version::operator!=(const Version& other) const {
    return fields_.content->fields != other.fields_.content->fields;
}

}  // namespace QENFx::Common
