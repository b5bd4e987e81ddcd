#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

/// Numbers in byte buffers, field by field and independent of the host's byte order and alignment. The caller has
/// checked that the field lies inside the buffer.
namespace Bytes {

inline std::uint16_t GetBE16(std::span<const std::uint8_t> data, std::size_t offset) {
    return static_cast<std::uint16_t>((data[offset] << 8) | data[offset + 1]);
}

inline void PutBE16(std::span<std::uint8_t> data, std::size_t offset, std::uint16_t value) {
    data[offset] = static_cast<std::uint8_t>(value >> 8);
    data[offset + 1] = static_cast<std::uint8_t>(value);
}

inline void PutBE32(std::span<std::uint8_t> data, std::size_t offset, std::uint32_t value) {
    PutBE16(data, offset, static_cast<std::uint16_t>(value >> 16));
    PutBE16(data, offset + 2, static_cast<std::uint16_t>(value));
}

inline std::uint32_t GetBE32(std::span<const std::uint8_t> data, std::size_t offset) {
    return (static_cast<std::uint32_t>(GetBE16(data, offset)) << 16) | GetBE16(data, offset + 2);
}

inline std::uint16_t GetLE16(std::span<const std::uint8_t> data, std::size_t offset) {
    return static_cast<std::uint16_t>(data[offset] | (data[offset + 1] << 8));
}

inline void PutLE16(std::span<std::uint8_t> data, std::size_t offset, std::uint16_t value) {
    data[offset] = static_cast<std::uint8_t>(value);
    data[offset + 1] = static_cast<std::uint8_t>(value >> 8);
}

inline std::uint32_t GetLE32(std::span<const std::uint8_t> data, std::size_t offset) {
    return static_cast<std::uint32_t>(GetLE16(data, offset)) |
           (static_cast<std::uint32_t>(GetLE16(data, offset + 2)) << 16);
}

inline void PutLE32(std::span<std::uint8_t> data, std::size_t offset, std::uint32_t value) {
    PutLE16(data, offset, static_cast<std::uint16_t>(value));
    PutLE16(data, offset + 2, static_cast<std::uint16_t>(value >> 16));
}

}  // namespace Bytes
