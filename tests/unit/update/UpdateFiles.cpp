#include "UpdateFiles.h"

#include <algorithm>

namespace UpdateTest {

namespace {

std::string Padded(const std::string& text, std::size_t size) {
    std::string field = text;
    field.resize(size);
    return field;
}

}  // namespace

std::string ImageData(std::size_t size, unsigned seed) {
    std::string data(size, '\0');
    std::uint32_t state = seed * 2654435761U + 1;
    for (char& byte : data) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<char>(state >> 24);
    }
    return data;
}

std::string Header(const std::string& magic, std::int32_t size, const std::string& version) {
    std::string header = magic;
    for (int shift = 0; shift < 32; shift += 8) {
        header.push_back(static_cast<char>(static_cast<std::uint32_t>(size) >> shift));
    }
    return header + Padded(version, 16) + std::string("tail of 16 bytes");
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
