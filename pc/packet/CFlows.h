#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <tuple>

#include "packet/CPacketReader.h"
#include "packet/Capture.h"

namespace ZELPC {

/// Takes the frames of captured network traffic and gives the packets of the PC protocol in them. What is of no
/// interest or cut short is passed over.
class CFlows {
public:
    explicit CFlows(Capture& capture) : capture_(capture) {}

    /// One frame as a capture of this link type holds it.
    void TakeFrame(std::uint32_t linkType, std::span<const std::uint8_t> frame);

private:
    /// One direction of a TCP connection.
    struct Flow {
        CPacketReader reader;
        std::uint32_t next = 0;  ///< sequence number of the next byte
        bool begun = false;
        bool broken = false;
    };

    struct Ends {
        std::uint32_t source = 0;
        std::uint32_t destination = 0;
        std::uint16_t sourcePort = 0;
        std::uint16_t destinationPort = 0;

        auto operator<=>(const Ends&) const = default;
        bool Has(std::uint16_t port) const { return sourcePort == port || destinationPort == port; }
    };

    void TakeIP(std::span<const std::uint8_t> packet);
    void TakeUDP(const Ends& ends, std::span<const std::uint8_t> segment);
    void TakeTCP(const Ends& ends, std::span<const std::uint8_t> segment);
    void Feed(const Ends& ends, Flow& flow, std::span<const std::uint8_t> data);
    void Add(const Ends& ends, const Wire::PCHeader& header, Buffer payload);

    Capture& capture_;
    std::map<Ends, Flow> flows_;
};

}  // namespace ZELPC
