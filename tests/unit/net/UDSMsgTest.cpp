#include "net/CUDSMsg.h"

#include "unit/support/ServiceTest.h"

using namespace UnitTest;

namespace {

class UDSMsgTest : public ServiceTest {};

/// Whether a message that comes in like this counts as undamaged.
bool IsValid(const Buffer& wire) {
    CUDSMsg message;
    std::copy_n(wire.begin(), 6, message.GetHeader().begin());
    std::copy(wire.begin() + 6, wire.end() - 3, message.GetBufferData().begin());
    std::copy(wire.end() - 3, wire.end(), message.GetTrailer().begin());
    return message.IsValidCRC();
}

/// CRC-16/ARC, bit by bit.
unsigned Crc(std::span<const std::uint8_t> bytes) {
    unsigned crc = 0;
    for (const std::uint8_t byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xA001U : 0U);
        }
    }
    return crc;
}

}  // namespace

// Faults: a CRC over the start byte or over itself, a byte order, a damaged byte that passes, framing bytes looked at.
TEST_F(UDSMsgTest, BuildsAndChecksMessages) {
    for (const char* head : {"02 B2 62 05 00 00", "02 B2 62 05 04 00 01 02 03 FF"}) {
        Buffer wire = Hex(head);
        const unsigned crc = Crc(std::span(wire).subspan(1));
        wire.insert(wire.end(), {static_cast<std::uint8_t>(crc), static_cast<std::uint8_t>(crc >> 8), 3});
        CUDSMsg message;
        EXPECT_TRUE(
            std::ranges::equal(message.GetSendPacket(0x0562, std::span(wire).subspan(6, wire.size() - 9)), wire));
        for (std::size_t i = 0; i < wire.size(); ++i) {
            if (i == 4 || i == 5) {
                continue;  // another length is another message
            }
            Buffer damaged = wire;
            damaged[i] ^= 0x40;
            EXPECT_EQ(IsValid(damaged), i == 0 || i == wire.size() - 1) << i;
        }
    }
    EXPECT_EQ(Logged("INFO [CUDSMsg::GetSendPacket] Making packet complete (9 bytes)"), 1);
    CUDSMsg incomplete;
    std::ranges::copy(Hex("02 B2 62 05 04 00"), incomplete.GetHeader().begin());
    EXPECT_FALSE(incomplete.IsValidCRC());
    EXPECT_EQ(Logged("ERROR [CUDSMsg::IsValidCRC] Cannot make packet"), 1);
}
