#include "SessionTest.h"

using namespace UnitTest;

namespace {

class TCPSessionTest : public SessionTest {};

const Buffer kGetInfo = Hex("0A1E 05 00 01 0012 1000");

}  // namespace

// Faults: a packet taken for whole too early or stuck to another, a body waited for that was not announced, image data
// in the packet log.
TEST_F(TCPSessionTest, PacketsComeInPiecesOrTogether) {
    TCPPair pair;
    Serve(std::move(pair.device));
    SendInPieces(pair.pc, kGetInfo);
    Send(pair.pc, Hex("0A1E 06 00 01 000F  0A77 07 00 01 0010 FF  0A1E 08 00 01 0002  0A1C 09 00 01 0015 010203"));
    EXPECT_TRUE(WaitUntil([] { return Packets().size() == 4; }));
    EXPECT_EQ(Packets(), (Buffers{Hex("05 00 1000"), Hex("06 01"), Hex("08 00"), Hex("09 01 010203")}));
    EXPECT_EQ(Logged("INFO [CTCPSession::ReceiveMessage] Receive TCP data complete <H:7><P:2> from 127.0.0.1"), 1);
    EXPECT_EQ(Logged("INFO 0A 77 07 00  01 00 10 FF  "), 1);
    EXPECT_EQ(Logged("INFO [CPCMsg::WritePacketLog] PC Packet (10 bytes)"), 0);
}

// Faults: half a packet handed on, a loss that is not told from an end, a wait for what never comes.
TEST_F(TCPSessionTest, ThePeerMayGoAtAnyPoint) {
    struct End {
        const char* sent;
        bool reset;
        const char* line;
    };
    for (const auto& [sent, reset, line] :
         {End{"", false, "Receive header failed: 0/7 bytes"},
          {"0A1E", false, "Receive header failed: 2/7 bytes"},
          {"0A1E 01 00 01 0018 0102", false, "Receive body failed: 2/5 bytes"},
          {"", true, "Receive message header failed: Connection reset by peer"},
          {"0A1E 01 00 01 0018", true, "Receive message body failed: Connection reset by peer"}}) {
        TCPPair pair;
        CTCPSession session(std::move(pair.device), kTCP, Monitor(), results_);
        Send(pair.pc, Hex(sent));
        const linger abortive{reset ? 1 : 0, 0};
        setsockopt(pair.pc.Get(), SOL_SOCKET, SO_LINGER, &abortive, sizeof(abortive));
        pair.pc.Reset();
        CPCMsg message;
        EXPECT_EQ(session.ReceiveMessage(message), -1) << line;
        EXPECT_EQ(Logged("ERROR [CTCPSession::ReceiveMessage] " + std::string(line)), 1) << line;
    }
}

// Faults: a session that goes on after it was told to stop, also in the middle of a packet; an end that is not told; a
// sender that writes to a descriptor that is gone, or raises a signal.
TEST_F(TCPSessionTest, EndsWhenStopped) {
    for (const std::size_t received : {9U, 8U}) {
        TCPPair pair;
        const auto session = Serve(std::move(pair.device));
        session->StopSession();
        Send(pair.pc, std::span(kGetInfo).first(received));
        EXPECT_TRUE(WaitUntil([&] { return HasEnded(session); }));
        EXPECT_EQ(Receive(pair.pc, 1), Buffer());
        EXPECT_EQ(session->SendMessage(kGetInfo), -1);
        EXPECT_EQ(session->GetClientIPAddr(), "");
        EXPECT_EQ(session->GetClientPort(), 0);
        CPCMsg message;
        EXPECT_EQ(session->ReceiveMessage(message), -2);
    }
    EXPECT_EQ(Logged("ERROR [CTCPSession::SendMessage] Send error: Bad file descriptor (0/9 bytes sended)"), 2);
    EXPECT_EQ(Logged("ERROR [CTCPSession::ReceiveMessage] Socket disconnected"), 2);
    EXPECT_EQ(ends_, 2);
}

// Faults: a connection on descriptor 0 taken for none, one left open beside its duplicate, or that commands inherit.
TEST_F(TCPSessionTest, AConnectionOnDescriptorZeroIsMoved) {
    const CDescriptor input(fcntl(0, F_DUPFD_CLOEXEC, 3));
    TCPPair pair;
    close(0);
    ASSERT_EQ(fcntl(pair.device.Get(), F_DUPFD_CLOEXEC, 0), 0);
    pair.device.Reset();
    Serve(CDescriptor(0));
    Send(pair.pc, kGetInfo);
    EXPECT_TRUE(WaitUntil([] { return Packets().size() == 1; }));
    const std::string line = LogLines().front();
    EXPECT_TRUE(line.starts_with("INFO [CTCPSession::Run] socket descriptor duplicated to ")) << line;
    EXPECT_EQ(fcntl(std::stoi(line.substr(line.rfind(' '))), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(0, F_GETFD), -1);
    dup2(input.Get(), 0);
}
