#include <gtest/gtest.h>
#include <sys/socket.h>

#include <atomic>
#include <thread>

#include "process/update/CHttpConnection.h"
#include "process/update/ServerRequest.h"

using namespace RMUP::Process;
using namespace std::chrono_literals;

// Faults: a server that trickles kept for hours, one that is just slow given up, the receiver's own time held against
// it.
TEST(HttpTest, ATricklingServerIsLost) {
    CReceiveLimit header = kHeaderLimit;
    header.Count(30s, 1'000'000);
    EXPECT_LE(header.Left(), 0s);
    CReceiveLimit body = kBodyLimit;
    for (int i = 0; i < 100; ++i) {
        body.Count(59s, 4096);
    }
    body.Count(59s, 4095);
    EXPECT_GT(body.Left(), 0s);
    body.Count(1s, 0);
    EXPECT_LE(body.Left(), 0s);

    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    CHttpConnection connection{CDescriptor(ends[0]), {200ms, 4096}};
    std::atomic<bool> lost{false};
    std::thread server([&] {
        for (const CDescriptor end(ends[1]); !lost; std::this_thread::sleep_for(2ms)) {
            send(end.Get(), "x", 1, MSG_NOSIGNAL);
        }
    });
    EXPECT_FALSE(connection.Take(1).empty());
    std::this_thread::sleep_for(250ms);
    EXPECT_FALSE(connection.Take(1).empty());
    while (!connection.Take(1).empty()) {
    }
    EXPECT_EQ(errno, ETIMEDOUT);
    lost = true;
    server.join();
}
