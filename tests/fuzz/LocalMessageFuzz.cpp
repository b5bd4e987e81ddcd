#include "core/Routes.h"
#include "fuzz/Device.h"
#include "net/CUDSServer.h"
#include "net/UDSMessageId.h"
#include "process/update/CUpdateSlot.h"
#include "unit/support/Sockets.h"

using Fuzz::Require;
using RMUP::Net::CUDSServer;

namespace {

/// Fills a message from bytes as the receiver does; missing bytes are zero.
void Fill(CUDSMsg& message, Fuzz::Bytes bytes) {
    const auto take = [&bytes](std::span<std::uint8_t> piece) {
        const std::size_t count = std::min(piece.size(), bytes.size());
        std::copy_n(bytes.begin(), count, piece.begin());
        bytes = bytes.subspan(count);
    };
    take(message.GetHeader());
    const auto payload = message.GetBufferData();
    Require(payload.size() == message.GetPayloadLength(), "the buffer has the announced size");
    take(payload);
    take(message.GetTrailer());
}

/// What ZELApp was sent is messages, whole ones.
void RequireMessages(const CDescriptor& zelApp) {
    const auto answers = UnitTest::Receive(zelApp, 65536, MSG_DONTWAIT);
    for (Fuzz::Bytes rest(answers); !rest.empty();) {
        CUDSMsg answer;
        Fill(answer, rest);
        const std::size_t size = CUDSMsg::kHeaderSize + answer.GetPayloadLength() + CUDSMsg::kTrailerSize;
        Require(size <= rest.size() && answer.IsValidCRC(), "an answer is whole");
        rest = rest.subspan(size);
    }
}

}  // namespace

/// A message of ZELApp. The bytes behind the first one are looked at as they come, and then go, with frame and CRC
/// around what stands behind the header, through the socket to the handlers. The first byte chooses the device's
/// status.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Fuzz::Bytes input(data, size);
    Fuzz::Device& device = Fuzz::Device::Get();
    static const CDescriptor zelApp = UnitTest::ConnectZELApp(*CUDSServer::GetInstance());
    device.Reset(Fuzz::TakeByte(input));

    CUDSMsg raw;
    Fill(raw, input);
    CUDSMsg framed;
    const auto packet = framed.GetSendPacket(raw.GetMessageId(), input.subspan(std::min<std::size_t>(input.size(), 6)));
    if (raw.IsValidCRC() && input.size() == packet.size() && input[0] == packet[0] && input[1] == packet[1]) {
        raw.WritePacketLog();
    }
    UnitTest::Send(zelApp, packet);
    CUDSMsg message;
    Require(CUDSServer::GetInstance()->ReceiveMessage(message) == static_cast<int>(packet.size()),
            "a message that was built is received whole");
    Require(
        message.GetMessageId() == raw.GetMessageId() && std::ranges::equal(message.GetPayload(), framed.GetPayload()),
        "a message that was built carries its payload");

    // A change of address ends the process, and a second update is refused, so that no worker outlives the input.
    const auto running = RMUP::Process::CUpdateSlot::Take();
    const auto* route = RMUP::Net::FindRoute(AllRoutes().uds, message.GetMessageId());
    if (route != nullptr && route->id != kUDSAddressChanged) {
        route->handle(message);
    }
    RequireMessages(zelApp);
    device.RequireOrder();
    return 0;
}
