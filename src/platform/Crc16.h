#pragma once

#include <cstdint>

namespace QENFx::Common::Convertor {

class CRC16 {
public:
    /// The 16-bit checksum of the local protocol over `length` bytes, 0 included. From any thread; cannot fail.
    static std::uint16_t crc16(const std::uint8_t* data, unsigned length);
};

}  // namespace QENFx::Common::Convertor
