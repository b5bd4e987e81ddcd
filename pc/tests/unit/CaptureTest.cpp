#include "packet/Capture.h"

#include "packet/PacketText.h"
#include "unit/support/ServiceTest.h"

using namespace UnitTest;
using namespace ZELPC;

namespace {

using Bytes8 = UnitTest::Buffer;

std::string Text(const Bytes8& bytes) {
    return {bytes.begin(), bytes.end()};
}

void Append(Bytes8& to, const Bytes8& more) {
    to.insert(to.end(), more.begin(), more.end());
}

Bytes8 Number(std::size_t value, int bytes, bool bigEndian) {
    Bytes8 number;
    for (int i = 0; i < bytes; ++i) {
        const int shift = 8 * (bigEndian ? bytes - 1 - i : i);
        number.push_back(static_cast<std::uint8_t>(value >> shift));
    }
    return number;
}

/// An IPv4 packet from .10 to .20 with this protocol and segment.
Bytes8 IP(std::uint8_t protocol, const Bytes8& segment) {
    Bytes8 packet = Hex("4500");
    Append(packet, Number(20 + segment.size(), 2, true));
    Append(packet, Hex("00000000 40"));
    packet.push_back(protocol);
    Append(packet, Hex("0000 C0A8280A C0A82814"));
    Append(packet, segment);
    return packet;
}

/// A TCP segment from port 9034 with this sequence number.
Bytes8 TCP(std::size_t sequence, const Bytes8& data, std::uint8_t flags = 0x10) {
    Bytes8 segment = Hex("234A 8000");
    Append(segment, Number(sequence, 4, true));
    Append(segment, Hex("00000000 50"));
    segment.push_back(flags);
    Append(segment, Hex("0000 0000 0000"));
    Append(segment, data);
    return IP(6, segment);
}

Bytes8 UDP(const Bytes8& data) {
    Bytes8 segment = Hex("234B 2000");
    Append(segment, Number(8 + data.size(), 2, true));
    Append(segment, Hex("0000"));
    Append(segment, data);
    return IP(17, segment);
}

Bytes8 Ethernet(const Bytes8& packet) {
    Bytes8 frame = Hex("000000000001 000000000002 8100 0005 0800");
    Append(frame, packet);
    return frame;
}

std::string Pcap(const std::vector<Bytes8>& frames, bool bigEndian) {
    Bytes8 file = bigEndian ? Hex("A1B2C3D4") : Hex("D4C3B2A1");
    Append(file, Bytes8(16));
    Append(file, Number(1, 4, bigEndian));
    for (const Bytes8& frame : frames) {
        Append(file, Bytes8(8));
        Append(file, Number(frame.size(), 4, bigEndian));
        Append(file, Number(frame.size(), 4, bigEndian));
        Append(file, frame);
    }
    return Text(file);
}

std::string PcapNg(const std::vector<Bytes8>& frames) {
    const auto block = [](std::size_t kind, Bytes8 body) {
        body.resize((body.size() + 3) / 4 * 4);
        Bytes8 bytes = Number(kind, 4, false);
        Append(bytes, Number(body.size() + 12, 4, false));
        Append(bytes, body);
        Append(bytes, Number(body.size() + 12, 4, false));
        return bytes;
    };
    Bytes8 file = block(0x0A0D0D0A, Hex("4D3C2B1A 0100 0000 FFFFFFFFFFFFFFFF"));
    Append(file, block(1, Hex("0100 0000 00000000")));
    for (const Bytes8& frame : frames) {
        Bytes8 body = Bytes8(12);
        Append(body, Number(frame.size(), 4, false));
        Append(body, Number(frame.size(), 4, false));
        Append(body, frame);
        Append(file, block(6, body));
    }
    return Text(file);
}

std::vector<std::string> Names(const Capture& capture) {
    std::vector<std::string> names;
    for (const CapturedPacket& packet : capture.packets) {
        names.push_back(packet.from + " " + DescribePacket(packet.header, packet.payload).front().substr(0, 6));
    }
    return names;
}

}  // namespace

// Faults: a packet cut by segments, a segment sent twice read twice, a foreign byte order, padding taken for data, a
// gap that is passed over in silence.
TEST(Capture, ReadsNetworkTraffic) {
    const Bytes8 registered = Hex("0A04 02 31 01 0010 31");
    const Bytes8 half(registered.begin(), registered.begin() + 5);
    const Bytes8 rest(registered.begin() + 5, registered.end());
    std::vector<Bytes8> frames = {Ethernet(TCP(99, {}, 0x02)), Ethernet(UDP(Hex("0A14 02 31 01 000E"))),
                                  Ethernet(TCP(100, half)),    Ethernet(TCP(100, half)),
                                  Ethernet(TCP(105, rest)),    Ethernet(TCP(108, registered))};
    frames[1].resize(frames[1].size() + 20);
    const std::vector<std::string> expected = {"192.168.40.10:9035 0x0A14", "192.168.40.10:9034 0x0A04",
                                               "192.168.40.10:9034 0x0A04"};
    for (const std::string& file : {Pcap(frames, true), Pcap(frames, false), PcapNg(frames)}) {
        const Capture capture = ReadCapture(file);
        EXPECT_EQ(Names(capture), expected);
        EXPECT_EQ(capture.problem, "");
    }
    const Capture cut = ReadCapture(Pcap(frames, true).substr(0, 300));
    EXPECT_EQ(cut.problem, "the capture ends within a packet");
    frames.erase(frames.begin() + 4);
    EXPECT_THAT(ReadCapture(Pcap(frames, true)).problem, testing::HasSubstr("is missing in the capture"));
}

// Faults: digits of a log mixed with its words, a rest that is dropped in silence.
TEST(Capture, ReadsBytesAndDigits) {
    const std::string log =
        "2026-11-22 00:31:12.926 [RMUP] INFO [CPCMsg::WritePacketLog] PC Packet (9 bytes)\n"
        "2026-11-22 00:31:12.926 [RMUP] INFO 0A 1E 05 31  01 00 12 10  00 \n"
        "2026-11-22 00:31:12.926 [RMUP] INFO [CUDSMsg::WritePacketLog] UDS Packet (9 bytes)\n"
        "2026-11-22 00:31:12.926 [RMUP] INFO 02 B2 00 05  00 00 00 00  03 \n"
        "2026-11-22 00:31:12.926 [RMUP] ERROR something\n";
    const std::vector<std::string> expected = {" 0x0A1E"};
    EXPECT_EQ(Names(ReadCapture(log)), expected);
    EXPECT_EQ(Names(ReadCapture("0a1e0531 01001210\n00")), expected);
    const std::string raw = Text(Hex("0A1E 05 31 01 0012 1000"));
    EXPECT_EQ(Names(ReadCapture(raw)), expected);
    EXPECT_EQ(ReadCapture(raw + "abc").problem, "what is left, 3 bytes, is no whole packet");
    EXPECT_EQ(ReadCapture("").problem, "there is nothing in the file");
}

// Faults: a payload that is read beyond its end, a password that is shown.
TEST(PacketText, SaysWhatThereIs) {
    const auto describe = [](const std::string& header, const Bytes8& payload) {
        const Bytes8 bytes = Hex(header);
        const auto lines = DescribePacket(Wire::ParsePCHeader(std::span(bytes).first<Wire::kPCHeaderSize>()), payload);
        std::string text;
        for (const std::string& line : lines) {
            text += line + "\n";
        }
        return text;
    };
    Bytes8 request = Hex("7365637265740000 234C C0A82814 4C61624C696E6B000000 31");
    EXPECT_EQ(describe("0A03 02 31 01 0040", request),
              "0x0A03 register, tag 2, sub-tag 0x31, 32 bytes\n"
              "PC 192.168.40.20 port 9036 (UDP), name \"LabLink\"\npeer ID \"1\"\n");
    request.resize(24);
    EXPECT_THAT(describe("0A03 02 31 01 0040", request), testing::HasSubstr("too short for what it is"));
    EXPECT_THAT(describe("0AFF 02 31 01 0012", Hex("0017")), testing::HasSubstr("not taken"));
    EXPECT_THAT(describe("1234 02 31 02 000F", {}), testing::HasSubstr("unknown command"));
    EXPECT_THAT(describe("0A1F 02 31 01 0012", Hex("1000")), testing::HasSubstr("do not fit"));
}
