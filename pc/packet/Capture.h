#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "packet/Packet.h"

namespace ZELPC {

/// A packet out of a file.
struct CapturedPacket {
    std::string from;  ///< "192.168.40.10:9034"; empty when the file does not tell
    std::string to;
    Wire::PCHeader header;
    Buffer payload;
};

struct Capture {
    std::vector<CapturedPacket> packets;
    std::string problem;  ///< why the rest was not read; empty when everything was
};

/// The packets in a file, whatever its kind: a capture of network traffic (pcap or pcapng), of which the PC protocol's
/// ports are read; the bytes of packets; or their hexadecimal digits, also as they stand in the service's log.
[[nodiscard]] Capture ReadCapture(std::string_view file);

}  // namespace ZELPC
