#include "packet/CPacketReader.h"
#include "packet/DeviceInfo.h"
#include "packet/Requests.h"
#include "packet/ScanAnswer.h"
#include "unit/support/ServiceTest.h"
#include "wire/PCCommand.h"

using namespace UnitTest;
using namespace ZELPC;
using State = CPacketReader::State;

namespace {

/// What a reader makes of a stream: the payloads of the packets, and whether it broke.
struct Read {
    std::vector<std::string> payloads;
    bool broken = false;
};

/// Feeds the stream in pieces of at most `most` bytes.
Read Feed(const UnitTest::Buffer& stream, std::size_t most) {
    CPacketReader reader;
    Read read;
    for (std::size_t done = 0; done < stream.size() && !read.broken;) {
        const auto space = reader.Space();
        const std::size_t count = std::min({space.size(), stream.size() - done, most});
        std::copy_n(stream.begin() + static_cast<std::ptrdiff_t>(done), count, space.begin());
        done += count;
        Packet packet;
        const State state = reader.Take(count, packet);
        if (state == State::kPacket) {
            read.payloads.emplace_back(packet.payload.begin(), packet.payload.end());
        }
        read.broken = state == State::kBroken;
    }
    return read;
}

UnitTest::Buffer ResultPacket(const std::string& text) {
    return MakePacket({.command = PCCommand::kResult, .tag = 1, .subTag = '1'},
                      UnitTest::Buffer(text.begin(), text.end()));
}

void Append(UnitTest::Buffer& stream, const UnitTest::Buffer& packet, std::size_t count) {
    stream.insert(stream.end(), packet.begin(), packet.begin() + static_cast<std::ptrdiff_t>(count));
}

}  // namespace

// Faults: a packet lost at the edge of a read, a flag taken for a length, a lying header that is believed.
TEST(PacketReader, CutsTheStream) {
    UnitTest::Buffer stream = Hex("0A04 02 31 01 0010 31  0A06 03 31 01 000F  0A1F 04 FF 01 0012 0000");
    for (const std::size_t most : {1U, 3U, 7U, 100U}) {
        const Read read = Feed(stream, most);
        EXPECT_EQ(read.payloads, (std::vector<std::string>{"1", "", std::string(2, '\0')})) << most;
        EXPECT_FALSE(read.broken);
    }
    for (const char* header : {"0000 00 00 01 0010 00", "0A04 00 00 02 0010 00", "0A04 00 00 01 000C 00"}) {
        EXPECT_TRUE(Feed(Hex(header), 100).broken) << header;
    }
}

// Faults: a result that begins anew after a send was cut short is put together from both pieces, or the packet behind
// it is lost; a piece of any length that is not recognised.
TEST(PacketReader, DropsWhatWasCutShort) {
    const std::string text = "MSH|^~\\&|ORVELA|LAB\rPID|||7{ {1\r";
    const UnitTest::Buffer packet = ResultPacket(text);
    const UnitTest::Buffer next = ResultPacket("MSH|next\r");
    for (std::size_t first = 7; first < packet.size(); ++first) {
        for (const std::size_t second : {std::size_t{0}, std::size_t{9}, packet.size() - 1}) {
            UnitTest::Buffer stream;
            Append(stream, packet, first);
            Append(stream, packet, second);
            Append(stream, packet, packet.size());
            Append(stream, next, next.size());
            const Read read = Feed(stream, 4096);
            EXPECT_FALSE(read.broken);
            EXPECT_EQ(read.payloads, (std::vector<std::string>{text, "MSH|next\r"})) << first << " " << second;
        }
    }
}

// Faults: the beginning of a result and the one behind it delivered as one; a stream that repeats itself read for ever.
TEST(PacketReader, BreaksWhenResultsMix) {
    UnitTest::Buffer mixed;
    Append(mixed, ResultPacket("MSH|a result whose end was never sent\r"), 20);
    Append(mixed, ResultPacket("MSH|next, long enough for the one before\r"), 48);
    const Read cut = Feed(mixed, 4096);
    EXPECT_TRUE(cut.broken && cut.payloads.empty());

    const UnitTest::Buffer packet = ResultPacket(std::string(20000, 'x'));
    UnitTest::Buffer stream;
    for (int i = 0; i < 20; ++i) {
        Append(stream, packet, packet.size() - 1);
    }
    const Read read = Feed(stream, 1000);
    EXPECT_TRUE(read.broken);
    EXPECT_TRUE(read.payloads.empty());
}

// Faults: an offset, the checksum of another length, a text that runs into its neighbour or moves the cursor.
TEST(ScanAnswer, IsReadOrRefused) {
    std::array<std::uint8_t, 68> payload{};
    std::ranges::copy(std::string("SN-0123456789AB"), payload.begin());
    std::ranges::copy(Hex("01 234A C0A8280A"), payload.begin() + 15);
    std::ranges::copy(Hex("C0A82814"), payload.begin() + 32);
    std::ranges::copy(std::string("Lab\x1B[2JLink"), payload.begin() + 36);
    std::ranges::copy(std::string("N62V"), payload.begin() + 60);
    auto packet =
        MakePacket({.command = PCCommand::kScanDeviceResponse, .tag = 9, .subTag = 0xFF, .checksum = true}, payload);
    const auto answer = ParseScanAnswer(packet);
    ASSERT_TRUE(answer);
    EXPECT_EQ(*answer, (ScanAnswer{"SN-0123456789AB", "N62V", 0xC0A8280A, 9034, true, 0xC0A82814, "Lab?[2JLin"}));
    EXPECT_TRUE(answer->IsVeterinary());
    EXPECT_EQ(DottedAddress(answer->pcAddress), "192.168.40.20");

    ++packet[20];
    EXPECT_FALSE(ParseScanAnswer(packet)) << "wrong checksum";
    --packet[20];
    packet[1] = 0x04;
    EXPECT_FALSE(ParseScanAnswer(packet)) << "another command";
    EXPECT_FALSE(ParseScanAnswer(std::span(packet).first(78)));
}

// Faults: items in another order, a length that is believed, an unknown item that shifts the others.
TEST(DeviceInfo, IsReadOrRefused) {
    const auto versions = std::string("1.02.03.0004") + std::string(4, '\0');
    std::string payload = std::string("\x10\x33", 2) + "\x03\x01" + "SN-0123456" + versions;
    payload += std::string("\0\xC0\xA8\x28\x14Other PC..", 15);
    const UnitTest::Buffer whole(payload.begin(), payload.end());
    const auto info = ParseDeviceInfo(whole);
    ASSERT_TRUE(info);
    EXPECT_EQ(info->activity, 3);
    EXPECT_EQ(info->peerID, 1);
    EXPECT_EQ(info->serial, "SN-0123456");
    EXPECT_EQ(info->sysVersion, "1.02.03.0004");
    EXPECT_FALSE(info->appVersion || *info->registered);
    EXPECT_EQ(info->registrant, (OtherPC{0xC0A82814, "Other PC.."}));

    for (std::size_t size = 0; size < whole.size(); ++size) {
        EXPECT_FALSE(ParseDeviceInfo(std::span(whole).first(size))) << size;
    }
    EXPECT_EQ(ParseDeviceInfo(Hex("1000 01"))->registered, true);
    for (const char* wrong : {"1000 01 00", "2000 00", "8001 01"}) {
        EXPECT_FALSE(ParseDeviceInfo(Hex(wrong))) << wrong;
    }
}
