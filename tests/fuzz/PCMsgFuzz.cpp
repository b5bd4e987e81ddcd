#include <algorithm>

#include "fuzz/Fuzz.h"
#include "net/CPCMsg.h"

using Fuzz::Require;

/// A packet of the PC: filled as receivers do, and built again from what was read.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    CPCMsg message;
    const Fuzz::Bytes input(data, size);
    if (size < CPCMsg::kHeaderSize) {
        return -1;
    }
    std::ranges::copy(input.first(CPCMsg::kHeaderSize), message.GetRawHeader().begin());
    const auto payload = message.GetBufferData();
    Require(payload.size() == message.GetPayloadLength(), "the buffer has the announced size");
    Require(payload.size() <= CPCMsg::kMaxPacketSize - CPCMsg::kHeaderSize, "no announced size exceeds the largest");
    const auto body = input.subspan(CPCMsg::kHeaderSize);
    std::copy_n(body.begin(), std::min(body.size(), payload.size()), payload.begin());
    message.SetSequencePacket();
    const auto wire = message.GetSendPacket();
    Require(wire.size() == CPCMsg::kHeaderSize + payload.size(), "the packet is header and payload");
    Require(std::ranges::equal(wire.first(CPCMsg::kHeaderSize), input.first(CPCMsg::kHeaderSize)),
            "the header stays as it came");

    CPCMsg built;
    for (const bool checksum : {false, true}) {
        const auto packet =
            built.MakePacket(message.GetCommand(), message.GetTag(), message.GetSubTag(), payload, checksum);
        const std::size_t expected = wire.size() + (checksum ? 4 : 0);
        Require(packet.size() == (expected > CPCMsg::kMaxPacketSize ? 0 : expected), "a packet is whole or not built");
        if (packet.empty()) {
            continue;
        }
        CPCMsg again;
        std::ranges::copy(packet.first(CPCMsg::kHeaderSize), again.GetRawHeader().begin());
        Require(again.GetCommand() == 0 || again.GetPayloadLength() == expected - CPCMsg::kHeaderSize,
                "a packet announces its payload");
        Require(std::ranges::equal(packet.subspan(CPCMsg::kHeaderSize, payload.size()), payload),
                "the payload is carried unchanged");
    }
    return 0;
}
