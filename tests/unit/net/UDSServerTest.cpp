#include "net/CUDSServer.h"

#include "net/CTCPListener.h"
#include "net/CUDPServer.h"
#include "unit/support/Sockets.h"

using namespace UnitTest;

namespace {

class UDSServerTest : public ServiceTest {
protected:
    CDescriptor Connect() { return ConnectZELApp(server_); }

    int ReceiveMessage() {
        message_ = CUDSMsg();
        return server_.ReceiveMessage(message_);
    }

    RMUP::Net::CUDSServer server_;
    CUDSMsg message_;
};

}  // namespace

// Faults: a path cut at its limit and bound elsewhere, a limit that is off by one, a stale file in the way.
TEST_F(UDSServerTest, ThePathHasALimit) {
    const std::string longest = "/tmp/" + std::string(102, 'x');
    EXPECT_EQ(server_.ServerOpen((longest + "y").c_str()), -1);
    EXPECT_EQ(Logged("ERROR [CUDSServer::ServerOpen] UDS server path can't over 108 bytes, path will be truncated."),
              1);
    EXPECT_FALSE(std::filesystem::exists(longest));
    EXPECT_EQ(ReceiveMessage(), -2);
    EXPECT_EQ(server_.SendMessage(Hex("02")), 0);
    WriteFile(longest, "stale");
    ConnectZELApp(server_, longest);
    EXPECT_EQ(server_.ServerOpen("/tmp/missing/socket"), -1);
    EXPECT_EQ(Logged("ERROR [CUDSServer::ServerOpen] Bind error: No such file or directory"), 1);
}

// Faults: half a message handed on, a short trailer that is not looked at any further, an end taken for a message.
TEST_F(UDSServerTest, ShortMessagesFail) {
    Buffer cut = LocalMessage(0x0510, Hex("01"));
    cut.resize(8);
    const std::string tag = "[CUDSServer::ReceiveMessage] ";
    const std::pair<Buffer, std::string> cases[] = {
        {Hex(""), "ERROR " + tag + "Receive failed: 0/6 bytes"},
        {Hex("02 B2 10"), "ERROR " + tag + "Receive failed: 3/6 bytes"},
        {Hex("02 B2 10 05 FF FF 01"), "ERROR " + tag + "Receive failed: 1/65535 bytes"},
        {cut, "INFO " + tag + "Receive UDS data complete <H:6><D:1><T:1> Total(8bytes)"}};
    for (const auto& [sent, line] : cases) {
        const CDescriptor zelApp = Connect();
        Send(zelApp, sent);
        shutdown(zelApp.Get(), SHUT_WR);
        EXPECT_EQ(ReceiveMessage(), -1) << line;
        EXPECT_EQ(Logged(line), 1) << line;
    }
    EXPECT_EQ(Logged("ERROR " + tag + "CRC checksum error"), 1);
}

// Fault: a socket or the log that a shell command inherits and keeps open.
TEST_F(UDSServerTest, CommandsInheritNothingOfTheEndpoints) {
    const auto inherited = [] {
        int count = 0;
        for (int descriptor = 3; descriptor < 256; ++descriptor) {
            const int flags = fcntl(descriptor, F_GETFD);
            count += flags >= 0 && (flags & FD_CLOEXEC) == 0 ? 1 : 0;
        }
        return count;
    };
    const int before = inherited();
    RMUP::Net::CUDPServer udp;
    RMUP::Net::CTCPListener listener;
    EXPECT_EQ(udp.ServerOpen() + listener.ServerOpen(), 0);
    EXPECT_EQ(listener.ServerOpen(), 0);  // closes what was open
    const CDescriptor zelApp = Connect();
    EXPECT_EQ(inherited(), before);
}
