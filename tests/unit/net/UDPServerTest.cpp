#include "net/CUDPServer.h"

#include "unit/support/Sockets.h"

using namespace UnitTest;
using RMUP::Net::CUDPServer;

namespace {

class UDPServerTest : public ServiceTest {};

}  // namespace

// Faults: a cut datagram taken for a whole one, a length below the header taken for none, a payload from elsewhere, a
// wait or a crash on an empty one.
TEST_F(UDPServerTest, TakesOnlyWholePackets) {
    const CDescriptor pc = UDPSocket(40035);
    const sockaddr_in device = CNetUtils::SocketAddress("127.0.0.1", 9035);
    CUDPServer server;
    CPCMsg nothing;
    EXPECT_EQ(server.ReceiveMessage(nothing), -2);
    EXPECT_EQ(server.SendMessage(Hex("00"), CNetUtils::SocketAddress("127.0.0.1", 40035)), 0);
    ASSERT_EQ(server.ServerOpen(), 0);
    CUDPServer second;
    EXPECT_EQ(second.ServerOpen(), -1);
    EXPECT_EQ(second.ReceiveMessage(nothing), -2);
    EXPECT_EQ(Logged("ERROR [CUDPServer::ServerOpen] Bind error: Address already in use"), 1);

    struct Datagram {
        std::size_t size, announced;
        int result;
    };
    for (const auto& [size, announced, result] : {Datagram{17, 17, 17},
                                                  {7, 7, 7},
                                                  {7, 3, -1},
                                                  {4096, 4096, 4096},
                                                  {0, 0, 0},
                                                  {3, 7, -1},
                                                  {8, 7, -1},
                                                  {7, 8, -1},
                                                  {4097, 4096, -1},
                                                  {4097, 4097, -1},
                                                  {4997, 4997, -1},
                                                  {8, 1, -1}}) {
        Buffer sent = {0x0A,
                       0x01,
                       0x33,
                       0x44,
                       9,
                       static_cast<std::uint8_t>(announced >> 7),
                       static_cast<std::uint8_t>(announced << 1)};
        sent.resize(size, 0xA5);
        EXPECT_GE(sendto(pc.Get(), sent.data(), size, 0, reinterpret_cast<const sockaddr*>(&device), sizeof(device)),
                  0);
        CPCMsg received;
        EXPECT_EQ(server.ReceiveMessage(received), result) << size << "/" << announced;
        if (result > 0) {
            EXPECT_EQ(Buffer(received.GetPayload().begin(), received.GetPayload().end()), Buffer(size - 7, 0xA5));
            EXPECT_EQ(ntohs(received.GetPeerAddress().sin_port), 40035);
        }
    }
    for (const char* counts : {"3/7", "7/3", "4096/4096", "4096/4997"}) {
        EXPECT_EQ(Logged("ERROR [CUDPServer::ReceiveMessage] Receive failed: " + std::string(counts) + " bytes"), 1);
    }

    EXPECT_EQ(server.SendMessage(Hex("0A14"), CNetUtils::SocketAddress("127.0.0.1", 40035)), 2);
    EXPECT_EQ(ReceiveDatagram(pc), Hex("0A14"));
}
