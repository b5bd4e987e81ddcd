#include "packet/CFlows.h"

#include <algorithm>

#include "packet/ScanAnswer.h"
#include "wire/Bytes.h"

namespace ZELPC {

namespace {

using Field = std::span<const std::uint8_t>;

constexpr std::uint16_t kUDPPort = 9035;
constexpr std::uint16_t kTCPPort = 9034;
constexpr std::uint16_t kIPv4 = 0x0800;
constexpr std::uint16_t kVLAN = 0x8100;

Field Behind(Field data, std::size_t count) {
    return data.subspan(std::min(count, data.size()));
}

/// What follows a header whose protocol field stands at `offset` and which ends behind it, when it is IPv4.
Field BehindType(Field frame, std::size_t offset) {
    while (frame.size() >= offset + 2 && Bytes::GetBE16(frame, offset) == kVLAN) {
        offset += 4;
    }
    return frame.size() >= offset + 2 && Bytes::GetBE16(frame, offset) == kIPv4 ? frame.subspan(offset + 2) : Field();
}

/// The IPv4 packet in a frame; empty when there is none.
Field PacketIn(std::uint32_t linkType, Field frame) {
    switch (linkType) {
        case 0:  // loopback of some systems: the address family before the packet
            return Behind(frame, 4);
        case 1:  // Ethernet
            return BehindType(frame, 12);
        case 12:
        case 101:  // the packet alone
            return frame;
        case 113:  // all interfaces, first form
            return BehindType(frame, 14);
        case 276:  // all interfaces, second form: the protocol stands first
            return frame.size() >= 20 && Bytes::GetBE16(frame, 0) == kIPv4 ? frame.subspan(20) : Field();
        default:
            return {};
    }
}

std::string EndText(std::uint32_t address, std::uint16_t port) {
    return DottedAddress(address) + ":" + std::to_string(port);
}

}  // namespace

void CFlows::TakeFrame(std::uint32_t linkType, Field frame) {
    TakeIP(PacketIn(linkType, frame));
}

void CFlows::TakeIP(Field packet) {
    constexpr std::size_t kLeastHeader = 20;
    if (packet.size() < kLeastHeader || packet[0] >> 4 != 4) {
        return;
    }
    const std::size_t header = static_cast<std::size_t>(packet[0] & 0xF) * 4;
    const std::size_t total = Bytes::GetBE16(packet, 2);
    const bool fragment = (Bytes::GetBE16(packet, 6) & 0x3FFF) != 0;
    if (header < kLeastHeader || total < header || total > packet.size() || fragment) {
        return;
    }
    const Field segment = packet.first(total).subspan(header);
    if (segment.size() < 8) {
        return;
    }
    const Ends ends{Bytes::GetBE32(packet, 12), Bytes::GetBE32(packet, 16), Bytes::GetBE16(segment, 0),
                    Bytes::GetBE16(segment, 2)};
    constexpr std::uint8_t kTCP = 6;
    constexpr std::uint8_t kUDP = 17;
    if (packet[9] == kUDP && ends.Has(kUDPPort)) {
        TakeUDP(ends, segment);
    } else if (packet[9] == kTCP && ends.Has(kTCPPort)) {
        TakeTCP(ends, segment);
    }
}

void CFlows::TakeUDP(const Ends& ends, Field segment) {
    constexpr std::size_t kHeader = 8;
    const Field data = segment.subspan(kHeader);
    if (data.size() >= Wire::kPCHeaderSize) {
        const Field payload = data.subspan(Wire::kPCHeaderSize);
        Add(ends, Wire::ParsePCHeader(data.first<Wire::kPCHeaderSize>()), Buffer(payload.begin(), payload.end()));
    }
}

void CFlows::TakeTCP(const Ends& ends, Field segment) {
    constexpr std::size_t kLeastHeader = 20;
    constexpr std::uint8_t kSyn = 0x02;
    if (segment.size() < kLeastHeader) {
        return;
    }
    const std::size_t header = static_cast<std::size_t>(segment[12] >> 4) * 4;
    const std::uint32_t sequence = Bytes::GetBE32(segment, 4);
    Flow& flow = flows_[ends];
    if ((segment[13] & kSyn) != 0) {
        flow = Flow{.reader = {}, .next = sequence + 1, .begun = true};
        return;
    }
    Field data = Behind(segment, std::max(header, kLeastHeader));
    if (data.empty() || flow.broken) {
        return;
    }
    if (!flow.begun) {
        // The capture began within the connection, hopefully between two packets.
        flow.next = sequence;
        flow.begun = true;
    }
    const auto before = static_cast<std::int32_t>(flow.next - sequence);
    if (before < 0) {
        flow.broken = true;
        capture_.problem =
            "a piece of the connection from " + EndText(ends.source, ends.sourcePort) + " is missing in the capture";
        return;
    }
    data = Behind(data, static_cast<std::size_t>(before));
    flow.next += static_cast<std::uint32_t>(data.size());
    Feed(ends, flow, data);
}

void CFlows::Feed(const Ends& ends, Flow& flow, Field data) {
    while (!data.empty() && !flow.broken) {
        const auto space = flow.reader.Space();
        const std::size_t count = std::min(space.size(), data.size());
        std::ranges::copy(data.first(count), space.begin());
        data = data.subspan(count);
        Packet packet;
        const CPacketReader::State state = flow.reader.Take(count, packet);
        if (state == CPacketReader::State::kPacket) {
            Add(ends, packet.header, std::move(packet.payload));
        } else if (state == CPacketReader::State::kBroken) {
            flow.broken = true;
            capture_.problem =
                "what goes from " + EndText(ends.source, ends.sourcePort) + " is no packet of the PC protocol";
        }
    }
}

void CFlows::Add(const Ends& ends, const Wire::PCHeader& header, Buffer payload) {
    capture_.packets.push_back({EndText(ends.source, ends.sourcePort), EndText(ends.destination, ends.destinationPort),
                                header, std::move(payload)});
}

}  // namespace ZELPC
