#include "common/CTaggedLog.h"

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <string>

namespace {

/// The text that a format and its arguments come to; `arguments` is used up.
std::string Format(const char* format, std::va_list arguments) {
    char shortText[256];
    std::va_list again;
    va_copy(again, arguments);
    const int length = vsnprintf(shortText, sizeof(shortText), format, arguments);
    std::string text(shortText);
    if (length >= static_cast<int>(sizeof(shortText))) {
        text.resize(static_cast<std::size_t>(length));
        vsnprintf(text.data(), text.size() + 1, format, again);
    }
    va_end(again);
    return text;
}

}  // namespace

void CTaggedLog::WriteInfo(const char* format, ...) const {
    std::va_list arguments;
    va_start(arguments, format);
    log_->WriteInfo("%s %s", tag_, Format(format, arguments).c_str());
    va_end(arguments);
}

void CTaggedLog::WriteError(const char* format, ...) const {
    std::va_list arguments;
    va_start(arguments, format);
    log_->WriteError("%s %s", tag_, Format(format, arguments).c_str());
    va_end(arguments);
}
