#include "net/CPCMsg.h"

#include "net/CNetUtils.h"
#include "unit/support/ServiceTest.h"

using namespace UnitTest;

namespace {

class PCMsgTest : public ServiceTest {};

}  // namespace

// Faults: a length beyond its 15 bits that wraps into a shorter packet, a refused packet that leaves the one before.
TEST_F(PCMsgTest, RefusesWhatTheLengthCannotSay) {
    CPCMsg message;
    const auto longest = message.MakePacket(PCCommand{0x7B01}, 1, 1, Buffer(0x7FFF - 7));
    EXPECT_EQ(Buffer(longest.begin() + 5, longest.begin() + 7), Hex("FFFE"));
    EXPECT_TRUE(message.MakePacket(PCCommand{0x7B01}, 1, 1, Buffer(0x8000 - 7)).empty());
    EXPECT_TRUE(message.MakePacket(PCCommand{0x7B01}, 1, 1, Buffer(0x7FFF - 7), true).empty());
    EXPECT_TRUE(message.GetSendPacket().empty());
    EXPECT_EQ(Logged("ERROR [CPCMsg::MakePacket] Packet is too long(32768/32767 bytes)"), 1);
}
