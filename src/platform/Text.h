#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

namespace QENFx::Common {

/// Text as the framework's interfaces take it.
class String {
public:
    String() = default;
    String(const char* text) : text_(text) {}
    String(std::string text) : text_(std::move(text)) {}

    /// Replaces the text by the printf-style rendering; any length.
    void Format(const char* format, ...) __attribute__((format(printf, 2, 3)));

    const char* c_str() const { return text_.c_str(); }
    const std::string& str() const { return text_; }

private:
    std::string text_;
};

/// A software version: major, minor, release patch and build number, compared in this order.
class Version {
public:
    Version() = default;

    /// Four decimal numbers of at most nine digits, separated by dots. Any other text reads as 0.00.00.0000.
    explicit Version(std::string_view text);

    /// The form "1.02.03.0004".
    std::string getVersion() const;

    auto operator<=>(const Version&) const = default;

private:
    std::array<std::uint32_t, 4> fields_{};
};

}  // namespace QENFx::Common
