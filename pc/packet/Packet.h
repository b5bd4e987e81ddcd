#pragma once

#include <cstdint>
#include <vector>

#include "wire/PCPacket.h"

namespace ZELPC {

using Buffer = std::vector<std::uint8_t>;

/// One packet of the PC protocol as it came over a connection.
struct Packet {
    Wire::PCHeader header;
    Buffer payload;
};

}  // namespace ZELPC
