#include "core/Routes.h"
#include "fuzz/Device.h"
#include "net/CConnectionMonitor.h"
#include "net/CTCPSession.h"
#include "unit/support/Sockets.h"

using Fuzz::Require;

namespace {

/// What the PC was sent is packets, whole ones.
void RequirePackets(const CDescriptor& pc) {
    for (CPCMsg message; recv(pc.Get(), message.GetRawHeader().data(), CPCMsg::kHeaderSize, MSG_WAITALL) > 0;
         message = CPCMsg()) {
        Require(message.GetRawHeader()[4] == 1 && message.GetCommand() != PCCommand{},
                "an answer begins with a header");
        const auto payload = message.GetBufferData();
        Require(payload.empty() ||
                    recv(pc.Get(), payload.data(), payload.size(), MSG_WAITALL) == static_cast<ssize_t>(payload.size()),
                "an answer is as long as it says");
    }
}

}  // namespace

/// A whole connection of a PC: its packets go through the session to the handlers, and the answers come back. The
/// first byte chooses the device's status.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Fuzz::Bytes input(data, size);
    Fuzz::Device& device = Fuzz::Device::Get();
    device.Reset(Fuzz::TakeByte(input));

    UnitTest::TCPPair pair;
    UnitTest::Send(pair.pc, input);
    shutdown(pair.pc.Get(), SHUT_WR);
    static RMUP::Net::CResultMarker results;
    const auto session = std::make_shared<RMUP::Net::CTCPSession>(
        std::move(pair.device), AllRoutes().tcp, RMUP::Net::CConnectionMonitor::GetInstance(), results);
    session->Run();

    RequirePackets(pair.pc);
    Require(session.use_count() == 1, "nobody holds a session that ended");
    device.RequireOrder();
    return 0;
}
