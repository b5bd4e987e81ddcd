#include <poll.h>
#include <sys/stat.h>

#include "SessionTest.h"
#include "net/CResultMarker.h"

using namespace UnitTest;

namespace {

constexpr char kMarker[] = "/tmp/rm_send_result_success";

class TCPSendTest : public SessionTest {};

}  // namespace

// Faults: a result told as sent without the PC's acknowledgement, with a neighbour's or with that of an earlier one, a
// wait given up early, an acknowledgement that is lost because another PC is answered meanwhile.
TEST_F(TCPSendTest, AResultWaitsForItsAcknowledgement) {
    TCPPair pair;
    CTCPSession session(std::move(pair.device), kTCP, Monitor(), results_);
    TCPPair neighbour;
    CTCPSession other(std::move(neighbour.device), kTCP, Monitor(), results_);
    const Buffer result = Hex("7B01 01 30 01 0010 4D");
    std::thread pc([&] {
        EXPECT_EQ(Receive(pair.pc, 8), result);
        other.AcknowledgeResult();
        EXPECT_FALSE(std::filesystem::exists(kMarker));
        session.AcknowledgeResult();
        EXPECT_EQ(other.SendErrorMessage(0x41, 0x07, PCError::kBusyUpdating), 0);
    });
    EXPECT_EQ(session.SendMessage(result), 8);
    pc.join();
    EXPECT_FALSE(std::filesystem::exists(kMarker));

    other.AcknowledgeResult();
    EXPECT_TRUE(std::filesystem::exists(kMarker));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(session.SendMessage(result), -1);
    const auto waited = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(waited, std::chrono::milliseconds(29 * 80));
    EXPECT_LT(waited, std::chrono::milliseconds(29 * 80 * 10));
    EXPECT_EQ(Receive(pair.pc, 8), result);
    EXPECT_EQ(Logged("ERROR [CTCPSession::SendMessage] There is not ACK message from PC"), 1);
    EXPECT_EQ(session.SendMessage({}), -1);

    RMUP::Net::CResultMarker::Create();
    EXPECT_EQ(other.SendErrorMessage(0x41, 0x07, PCError::kBusyUpdating), 0);
    EXPECT_FALSE(std::filesystem::exists(kMarker));

    ASSERT_EQ(mkfifo(kMarker, 0666), 0);
    EXPECT_FALSE(RMUP::Net::CResultMarker::Exists()) << "only a file is a marker";
    RMUP::Net::CResultMarker::Create();
    EXPECT_TRUE(RMUP::Net::CResultMarker::Exists());
}

// Fault: the rest of a partly sent packet sent in the place of the whole one, or bytes counted wrongly.
TEST_F(TCPSendTest, APartlySentPacketGoesOutAgainFromItsStart) {
    TCPPair pair(true);
    fcntl(pair.device.Get(), F_SETFL, O_NONBLOCK);
    Buffer packet = Hex("0A1E 01 00 01 FFFE");
    while (packet.size() < CPCMsg::kMaxPacketSize) {
        packet.push_back(static_cast<std::uint8_t>(0x80 + packet.size() % 113));
    }
    int sent = 0;
    std::thread sender([&, device = std::move(pair.device)]() mutable {
        sent = CTCPSession(std::move(device), kTCP, Monitor(), results_).SendMessage(packet);
    });
    Buffer received;
    for (Buffer piece; !(piece = Receive(pair.pc, 1000)).empty();) {
        received.insert(received.end(), piece.begin(), piece.end());
    }
    sender.join();
    EXPECT_EQ(sent, static_cast<int>(received.size()));
    EXPECT_GE(received.size(), packet.size());
    int starts = 1;
    std::size_t at = 0;
    for (const std::uint8_t byte : received) {
        if (at == packet.size() || byte != packet[at]) {
            ASSERT_EQ(byte, packet[0]);
            ++starts;
            at = 0;
        }
        ++at;
    }
    EXPECT_GT(starts, 1);
}

// Faults: a sender that waits for ever for a PC that does not read, one that leaves a piece of a packet before the
// next.
TEST_F(TCPSendTest, ASenderDoesNotWaitForWhoDoesNotRead) {
    TCPPair pair(true);
    const auto session = Serve(std::move(pair.device));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(session->SendMessage(Buffer(CPCMsg::kMaxPacketSize, 0x0A)), -1);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
    EXPECT_THAT(
        LogLines(),
        testing::Contains(testing::StartsWith("ERROR [CTCPSession::SendMessage] Send error: Connection timed out (")));
    EXPECT_TRUE(WaitUntil([&] { return HasEnded(session); }));
}

// Fault: a session that ends gives its descriptor's number away while another thread sends on it, so that the packet
// goes to a stranger.
TEST_F(TCPSendTest, NobodyElseGetsAPacket) {
    std::atomic<bool> over{false};
    std::thread strangers([&] {
        while (!over) {
            TCPPair pair;
            std::this_thread::yield();
            pair.device.Reset();
            EXPECT_EQ(Receive(pair.pc, 1), Buffer());
        }
    });
    for (int round = 0; round < 100; ++round) {
        TCPPair pair;
        const auto session = Serve(std::move(pair.device));
        const auto sendUntilTheEnd = [&session] {
            while (session->SendMessage(Buffer(100, 0x0A)) > 0) {
            }
        };
        std::thread one(sendUntilTheEnd);
        std::thread two(sendUntilTheEnd);
        EXPECT_EQ(Receive(pair.pc, 1), Hex("0A"));
        shutdown(pair.pc.Get(), SHUT_WR);
        one.join();
        two.join();
    }
    over = true;
    strangers.join();
}
