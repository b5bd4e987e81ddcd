#include "platform/Crc16.h"

#include <boost/crc.hpp>

namespace QENFx::Common::Convertor {

std::uint16_t CRC16::crc16(const std::uint8_t* data, unsigned length) {
    boost::crc_16_type crc;
    crc.process_bytes(data, length);
    return crc.checksum();
}

}  // namespace QENFx::Common::Convertor
