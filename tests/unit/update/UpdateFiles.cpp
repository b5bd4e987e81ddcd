#include "UpdateFiles.h"

#include <algorithm>

namespace UpdateTest {

std::string ImageData(std::size_t size, unsigned seed) {
    std::string data(size, '\0');
    std::uint32_t state = seed * 2654435761U + 1;
    for (char& byte : data) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<char>(state >> 24);
    }
    return data;
}

std::span<const std::uint8_t> Bytes(const std::string& text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

ssize_t CTextSource::Fill(std::span<std::uint8_t> buffer) {
    const std::size_t count = std::min({buffer.size(), piece_, text_.size() - next_});
    std::ranges::copy(Bytes(text_).subspan(next_, count), buffer.begin());
    next_ += count;
    return static_cast<ssize_t>(count);
}

}  // namespace UpdateTest
