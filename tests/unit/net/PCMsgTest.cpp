#include "net/CPCMsg.h"

#include "net/CNetUtils.h"
#include "unit/support/ServiceTest.h"

using namespace UnitTest;

namespace {

class PCMsgTest : public ServiceTest {};

/// A message as a receiver fills it.
CPCMsg Received(const std::string& header, const std::string& payload = "") {
    CPCMsg message;
    std::ranges::copy(Hex(header), message.GetRawHeader().begin());
    std::ranges::copy(Hex(payload), message.GetBufferData().begin());
    return message;
}

Buffer Copy(std::span<const std::uint8_t> bytes) {
    return {bytes.begin(), bytes.end()};
}

}  // namespace

// Faults: a byte order, a length that leaves the header out, a copy that shares its bytes.
TEST_F(PCMsgTest, BuildsPackets) {
    CPCMsg message;
    EXPECT_EQ(Copy(message.MakePacket(0x0A06, 0x11, 0x22, {})), Hex("0A06 11 22 01 000E"));
    EXPECT_EQ(Copy(message.MakePacket(0x0AFF, 1, 0xFF, Hex("0017"))), Hex("0AFF 01 FF 01 0012 0017"));
    const CPCMsg copy = message;
    EXPECT_EQ(Copy(message.MakePacket(0x0A14, 1, 2, {})), Hex("0A14 01 02 01 000E"));
    EXPECT_EQ(Copy(copy.GetSendPacket()), Hex("0AFF 01 FF 01 0012 0017"));
    EXPECT_EQ(Copy(copy.GetPayload()), Hex("0017"));
}

// Faults: a checksum that covers itself, leaves the header out or wraps at a byte; one announced by the flag.
TEST_F(PCMsgTest, AppendsTheChecksum) {
    CPCMsg message;
    const Buffer packet = Copy(message.MakePacket(0x0A02, 0x31, 0xFF, Buffer(68, 0xFF), true));
    ASSERT_EQ(packet.size(), 79U);
    EXPECT_EQ(Buffer(packet.begin(), packet.begin() + 7), Hex("0A02 31 FF 01 009E"));
    // 0A + 02 + 31 + FF + 01 + 9E, and 68 times FF
    EXPECT_EQ(Buffer(packet.end() - 4, packet.end()), Hex("0000 4597"));
}

// Faults: a length beyond its 15 bits that wraps into a shorter packet, a refused packet that leaves the one before.
TEST_F(PCMsgTest, RefusesWhatTheLengthCannotSay) {
    CPCMsg message;
    EXPECT_EQ(Copy(message.MakePacket(0x7B01, 1, 1, Buffer(0x7FFF - 7)).subspan(5, 2)), Hex("FFFE"));
    EXPECT_TRUE(message.MakePacket(0x7B01, 1, 1, Buffer(0x8000 - 7)).empty());
    EXPECT_TRUE(message.MakePacket(0x7B01, 1, 1, Buffer(0x7FFF - 7), true).empty());
    EXPECT_TRUE(message.GetSendPacket().empty());
    EXPECT_EQ(Logged("ERROR [CPCMsg::MakePacket] Packet is too long(32768/32767 bytes)"), 1);
}

// Faults: a length below the header that turns huge, the flag counted as a length, a payload for no command.
TEST_F(PCMsgTest, ReadsLyingHeaders) {
    for (const char* header :
         {"0A1C 00 00 01 0001", "0A1C 00 00 01 000D", "0A1C 00 00 01 000F", "0000 00 00 01 FFFF"}) {
        CPCMsg message = Received(header);
        EXPECT_EQ(message.GetPayloadLength() + message.GetBufferData().size(), 0U) << header;
        EXPECT_TRUE(message.GetFlag()) << header;
    }
    CPCMsg message = Received("0A1C 41 42 09 FFFE");
    EXPECT_EQ(message.GetPayloadLength(), 32760U);
    EXPECT_EQ(message.GetBufferData().size(), 32760U);
    EXPECT_EQ(message.GetTag() * 256 + message.GetSubTag(), 0x4142);
    EXPECT_FALSE(message.GetFlag());
}

// Faults: a row of 25 bytes, a gap at the end of a full row, a received packet logged without its header.
TEST_F(PCMsgTest, LogsThePacketAsOnTheWire) {
    const std::string payload = "08090A0B0C0D0E0F 1011121314151617 18";
    const std::string row = "08  09 0A 0B 0C  0D 0E 0F 10  11 12 13 14  15 16 17 18 ";
    Received("0A1F 01 02 01 0030", payload).WritePacketLog();
    Received("0A1F 01 02 01 0032", payload + "FF").WritePacketLog();
    Received("0A1F 01 02 01 0010", "FE").WritePacketLog();
    EXPECT_THAT(
        LogLines(),
        testing::ElementsAre("INFO [CPCMsg::WritePacketLog] PC Packet (24 bytes)", "INFO 0A 1F 01 02  01 00 30 " + row,
                             "INFO [CPCMsg::WritePacketLog] PC Packet (25 bytes)", "INFO 0A 1F 01 02  01 00 32 " + row,
                             "INFO FF ", "INFO [CPCMsg::WritePacketLog] PC Packet (8 bytes)",
                             "INFO 0A 1F 01 02  01 00 10 FE  "));
}
