#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>

/// A text field of a PC's packet: its characters up to the padding, or up to a control character, which no line of
/// settings or log holds.
inline std::string TextField(std::span<const std::uint8_t> payload, std::size_t offset, std::size_t size) {
    const auto field = payload.subspan(offset, size);
    return std::string(field.begin(), std::ranges::find_if(field, [](std::uint8_t byte) { return byte < ' '; }));
}

/// Copies a text into a zeroed field, cut to the field's size.
inline void PutText(std::span<std::uint8_t> field, const std::string& text) {
    std::copy_n(text.begin(), std::min(text.size(), field.size()), field.begin());
}
