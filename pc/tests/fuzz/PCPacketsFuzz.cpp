#include <algorithm>

#include "fuzz/Fuzz.h"
#include "packet/CPacketReader.h"
#include "packet/Capture.h"
#include "packet/DeviceInfo.h"
#include "packet/PacketText.h"
#include "packet/ScanAnswer.h"

using Fuzz::Require;
using namespace ZELPC;

namespace {

bool IsPlain(const std::string& text) {
    return std::ranges::none_of(text, [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7F'; });
}

/// What an analyzer sends over a connection, cut into reads of any size.
void ReadStream(Fuzz::Bytes input) {
    CPacketReader reader;
    Packet packet;
    std::size_t taken = 0;
    bool broken = false;
    while (!input.empty()) {
        const auto space = reader.Space();
        Require(!space.empty() && space.size() <= Wire::kMaxPCPacketSize, "there is room, and not more than a packet");
        const std::size_t count = std::min({input.size(), space.size(), std::size_t{1} + input[0] % 64});
        std::ranges::copy(input.first(count), space.begin());
        input = input.subspan(count);
        const CPacketReader::State state = reader.Take(count, packet);
        Require(!broken || state == CPacketReader::State::kBroken, "a broken stream stays broken");
        broken = state == CPacketReader::State::kBroken;
        taken += count;
        if (state == CPacketReader::State::kPacket) {
            Require(packet.payload.size() == packet.header.payload && packet.header.version == 1, "a packet is whole");
            Require(packet.header.total <= taken && !reader.IsInside(), "a packet is made of bytes that came");
            taken = 0;
        }
    }
}

void Describe(const Wire::PCHeader& header, Fuzz::Bytes payload) {
    const auto lines = DescribePacket(header, payload);
    Require(!lines.empty() && std::ranges::all_of(lines, IsPlain), "a packet is described in plain text");
}

}  // namespace

/// What the PC's side reads from the network and from captures of it.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Fuzz::Bytes input(data, size);
    switch (Fuzz::TakeByte(input) % 4) {
        case 0:
            ReadStream(input);
            break;
        case 1:
            for (const CapturedPacket& packet : ReadCapture(Fuzz::Text(input)).packets) {
                Describe(packet.header, packet.payload);
            }
            break;
        case 2:
            if (const auto answer = ParseScanAnswer(input)) {
                Require(IsPlain(answer->serial + answer->model + answer->pcName), "a scan answer is plain text");
            }
            if (input.size() >= Wire::kPCHeaderSize) {
                Describe(Wire::ParsePCHeader(input.first<Wire::kPCHeaderSize>()), input.subspan(Wire::kPCHeaderSize));
            }
            break;
        default:
            if (const auto info = ParseDeviceInfo(input)) {
                Require(IsPlain(info->serial.value_or("") + info->xmlVersion.value_or("")), "information is plain");
                Require(!info->registrant || !*info->registered, "only an unregistered PC is told who is");
            }
    }
    return 0;
}
