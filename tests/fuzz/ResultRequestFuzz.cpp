#include "core/Routes.h"
#include "fuzz/Device.h"
#include "hl7wrap/COUL_R22Wrap.h"
#include "net/CConnectionMonitor.h"
#include "net/CPCMsg.h"
#include "process/CTransferResult.h"
#include "wire/PCCommand.h"

using Fuzz::Require;

/// The request file in which ZELApp names a result, and the result that is sent for it.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Fuzz::Device& device = Fuzz::Device::Get();
    device.Reset(2);
    device.Database().Execute("UPDATE Tb_Result_Summary SET PCSync = 0; UPDATE Tb_Ctrl_Summary SET PCSync = 0");
    UnitTest::WriteFile("/tmp/sendtopc.data", std::string(Fuzz::Text({data, size})));

    std::string key;
    const int kind = CTransferResult(Service()).GetResultInfo(key);
    Require((kind >= 0) == (size >= 2 && size <= 65536), "a request names something");
    Require(size == 0 || kind <= 9 || data[0] < '0' || data[0] > '9', "a kind is a digit");
    const std::string_view condition = Fuzz::Text({data, size}).substr(std::min<std::size_t>(size, 2));
    Require(kind < 0 || key == condition.substr(0, condition.find('\0')), "the condition is taken up to a zero byte");

    const auto session = std::make_shared<UnitTest::ScriptedSession>();
    auto* monitor = RMUP::Net::CConnectionMonitor::GetInstance();
    monitor->ReplaceLink(session);
    CUDSMsg request;
    const int result = CTransferResult(Service()).ProcessSendResult(request);
    monitor->ReplaceLink(nullptr);
    Require(session->sent.size() == (result == 0 ? 1U : 0U), "a result that was sent is one packet");
    if (result == 0) {
        CPCMsg packet;
        std::copy_n(session->sent[0].begin(), CPCMsg::kHeaderSize, packet.GetRawHeader().begin());
        const auto payload = Fuzz::Bytes(session->sent[0]).subspan(CPCMsg::kHeaderSize);
        Require(packet.GetCommand() == kResult && packet.GetPayloadLength() == payload.size(), "the packet is whole");
        ZELHL7::COUL_R22Wrap message;
        std::string_view text = Fuzz::Text(payload);
        Require(payload.empty() || message.Decode(text) == 1, "the packet carries a message");
    }
    return 0;
}
