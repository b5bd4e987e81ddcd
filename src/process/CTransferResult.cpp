#include "process/CTransferResult.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <span>

#include "common/CTaggedLog.h"
#include "common/Constants.h"
#include "common/RegularFile.h"
#include "config/CConfigMgr.h"
#include "config/CDeviceInfo.h"
#include "db/CRmDao.h"
#include "net/CPCMsg.h"
#include "net/CUDSServer.h"
#include "net/UDSMessageId.h"
#include "process/ResultMessage.h"
#include "process/update/ServiceContext.h"
#include "wire/PCCommand.h"

using QENFx::Data::Collection::Row;
using QENFx::Data::Collection::Table;
using RMUP::Process::kResultMessageTag;

namespace {

/// The first row, or null.
const Row* FirstRow(Table& table) {
    table.Reset();
    table.MoveNext();
    return table.getCurrent();
}

}  // namespace

CTransferResult::CTransferResult(const RMUP::Process::ServiceContext& service)
    : log_(QENFx::Log::Logger::getLogger()->getLog(kLogName)), service_(service) {}

int CTransferResult::ProcessSendResult(const CUDSMsg& request) {
    CDeviceInfo& device = service_.device;
    device.SetStatus(DeviceStatus::kTransferResult);

    std::string key;
    const int kind = GetResultInfo(key);
    std::string hl7Text;
    if (kind >= 0) {
        // Whatever was built goes out: ZELApp and the PC decide what a result without its data is worth.
        (void)SetHL7ResultPacket(kind, key, hl7Text);
    }

    CUDSMsg report;
    if (kind < 0 || !Send(hl7Text)) {
        constexpr std::array<std::uint8_t, 6> kFailure = {0x0B, 0x00, 0x02, 0x51, 0x20, 0x00};
        service_.local.SendMessage(report.GetSendPacket(RMUP::Net::UDSMessageId::kResultFailed, kFailure));
        device.SetStatus(DeviceStatus::kDisconnect);
        return -1;
    }

    MarkAsSent(kind, key);
    service_.local.SendMessage(report.GetSendPacket(RMUP::Net::UDSMessageId::kResultSent, {}));
    const auto payload = request.GetPayload();
    if (payload.size() > 1 && payload[1] == 1) {
        device.SetStatus(DeviceStatus::kRegistered);
    }
    return 0;
}

int CTransferResult::GetResultInfo(std::string& key) {
    const CTaggedLog log(log_, "[CTransferResult::GetResultInfo]");
    constexpr std::size_t kPrefix = 2;
    constexpr std::size_t kLongestRequest = std::size_t{64} * 1024;  // longer than any condition
    const CDescriptor file = OpenRegularFile(kSendToPCFile, O_NOFOLLOW);
    std::string text(kLongestRequest + 1, '\0');
    const ssize_t count = TEMP_FAILURE_RETRY(read(file.Get(), text.data(), text.size()));
    text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    if (text.size() < kPrefix || text.size() > kLongestRequest) {
        log.WriteError("Cannot read request file(%s)", kSendToPCFile);
        return -1;
    }
    key = text.substr(kPrefix, text.find('\0', kPrefix) - kPrefix);
    return static_cast<std::uint8_t>(text[0] - '0');
}

bool CTransferResult::Send(const std::string& hl7Text) {
    const auto peerID = static_cast<std::uint8_t>(service_.config.GetFirstChar(ConfigKey::kPCPeerID));
    const auto session = service_.device.GetSession();
    if (session == nullptr) {
        return false;
    }
    CPCMsg packet;
    const std::span payload(reinterpret_cast<const std::uint8_t*>(hl7Text.data()), hl7Text.size());
    return session->SendMessage(packet.MakePacket(PCCommand::kResult, 1, peerID, payload)) >= 0;
}

void CTransferResult::MarkAsSent(int kind, const std::string& key) {
    const CTaggedLog log(log_, "[CTransferResult::ProcessSendResult]");
    CRmDao dao;
    if ((kind == kPatientResult ? dao.SetSyncResult(key) : dao.SetSyncCtrlResult(key)) < 0) {
        log.WriteError("Write PCSync to 'true' error");
    }
}

int CTransferResult::SetHL7ResultPacket(int kind, const std::string& key, std::string& hl7Text) {
    const CTaggedLog log(log_, kResultMessageTag);
    hl7Text.clear();
    const bool patient = kind == kPatientResult;
    CRmDao dao;
    const CRmDao::Table summary = patient ? dao.GetResultSummary(key) : dao.GetControlSummary(key);
    if (summary == nullptr) {
        log.WriteError("Get summary table error");
        return -1;
    }
    const Row* row = FirstRow(*summary);
    if (row == nullptr) {
        log.WriteError("Cannot load 'Row'");
    }
    const CRmDao::Table details = patient ? dao.GetResultData(key) : dao.GetControlData(key);
    if (details == nullptr) {
        log.WriteError("Get detail table error");
        return -1;
    }

    ZELHL7::COUL_R22Wrap message;
    message.SetHeader({"ORVELA", "LAB", "NULL", "NULL", "0"});
    // Without its summary row a result has nobody whom it belongs to: the header goes alone.
    if (row != nullptr && patient) {
        const bool rangesDisabled = service_.config.GetContents(ConfigKey::kReferenceRangeDisable) == "1";
        RMUP::Process::FillPatientResult({*row, *details}, rangesDisabled, *log_, message);
    } else if (row != nullptr) {
        RMUP::Process::FillControlResult({*row, *details}, *log_, message);
    }
    message.GetMessageText(hl7Text);
    return 0;
}
