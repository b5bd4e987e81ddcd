#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace HL7v251::Base {

/// The name of a segment or group as a template argument, so that it takes no memory in the objects.
template <std::size_t N>
struct HL7Name {
    consteval HL7Name(const char (&name)[N]) { std::copy_n(name, N, text); }
    constexpr std::string_view View() const { return {text, N - 1}; }

    char text[N]{};
};

}  // namespace HL7v251::Base
