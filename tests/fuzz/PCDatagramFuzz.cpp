#include "core/Routes.h"
#include "fuzz/Device.h"
#include "net/CUDPServer.h"
#include "unit/support/Sockets.h"

using Fuzz::Require;
using RMUP::Net::CUDPServer;

namespace {

CDescriptor OpenBothEnds() {
    Require(CUDPServer::GetInstance()->ServerOpen() == 0, "the server opens");
    return UnitTest::UDPSocket(Fuzz::Device::kPCPort);
}

}  // namespace

/// A datagram of the PC, received and handled. The first byte chooses the device's status and whether the datagram
/// comes from the registered PC.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Fuzz::Bytes input(data, size);
    Fuzz::Device& device = Fuzz::Device::Get();
    static const CDescriptor pc = OpenBothEnds();
    const std::uint8_t choice = Fuzz::TakeByte(input);
    device.Reset(choice & 0x7F);
    if ((choice & 0x80) != 0) {
        CConfigMgr::GetInstance()->SetContents(ConfigKey::kPCUDPPort, 1);
    }

    const sockaddr_in address = CNetUtils::SocketAddress("127.0.0.1", 9035);
    Require(sendto(pc.Get(), input.data(), input.size(), 0, reinterpret_cast<const sockaddr*>(&address),
                   sizeof(address)) == static_cast<ssize_t>(input.size()),
            "the datagram goes out");
    // An answer that an earlier datagram directed at the server itself may come first.
    for (bool own = false; !own;) {
        CPCMsg message;
        const int received = CUDPServer::GetInstance()->ReceiveMessage(message);
        own = ntohs(message.GetPeerAddress().sin_port) == Fuzz::Device::kPCPort;
        Require(received <= 4096 && received != -2, "what is received has been announced");
        const auto* route = RMUP::Net::FindRoute(AllRoutes().udp, message.GetCommand());
        if (received >= 0 && route != nullptr) {
            (void)route->handle(message);
        }
    }
    for (UnitTest::Buffer answer; !(answer = UnitTest::ReceiveDatagram(pc, false)).empty();) {
        CPCMsg message;
        Require(answer.size() >= CPCMsg::kHeaderSize, "an answer has a header");
        std::copy_n(answer.begin(), CPCMsg::kHeaderSize, message.GetRawHeader().begin());
        Require(message.GetPayloadLength() == answer.size() - CPCMsg::kHeaderSize, "an answer is as long as it says");
    }
    device.RequireOrder();
    return 0;
}
