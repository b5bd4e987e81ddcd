#pragma once

#include <cstddef>
#include <cstdint>

namespace QENFx::Common::Convertor {

class CRC16 {
public:
    /// The 16-bit checksum of the local protocol over `length` bytes.
    static std::uint16_t crc16(const std::uint8_t* data, std::size_t length);
};

}  // namespace QENFx::Common::Convertor
