#include "process/CTransferResult.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <span>

#include "common/Constants.h"
#include "common/RegularFile.h"
#include "config/CConfigMgr.h"
#include "config/CDeviceInfo.h"
#include "db/CRmDao.h"
#include "hl7wrap/COUL_R22Wrap.h"
#include "net/CPCMsg.h"
#include "net/CUDSServer.h"
#include "net/UDSMessageId.h"
#include "wire/PCCommand.h"

using QENFx::Data::Collection::Row;
using QENFx::Data::Collection::Table;
using RMUP::Net::CUDSServer;
using ZELHL7::COUL_R22Wrap;
using ZELHL7::Observation;

namespace {

constexpr int kDate = 1;
constexpr int kDateAndTime = 2;

constexpr char kPacketTag[] = "[CTransferResult::SetHL7ResultPacket]";

/// The first row, or null.
const Row* FirstRow(Table& table) {
    table.Reset();
    table.MoveNext();
    return table.getCurrent();
}

/// A row whose texts may go into a message: a control character in one would begin a segment of its own, or break off
/// the message, so that it reads as a blank.
class MessageRow {
public:
    /// `cleaned` becomes true when a text was changed.
    MessageRow(const Row& row, bool& cleaned) : row_(row), cleaned_(cleaned) {}

    std::string Text(const char* column) const {
        std::string text = row_.getString(column);
        for (char& character : text) {
            if (static_cast<unsigned char>(character) < ' ') {
                character = ' ';
                cleaned_ = true;
            }
        }
        return text;
    }

    double Number(const char* column) const { return row_.getDouble(column); }
    bool Has(const char* column) const { return row_.exists(column); }

private:
    const Row& row_;
    bool& cleaned_;
};

std::string DynamicRange(const MessageRow& detail) {
    if (!detail.Has("Dynamic_Min") || !detail.Has("Dynamic_Max")) {
        return {};
    }
    return "," + detail.Text("Dynamic_Min") + "," + detail.Text("Dynamic_Max");
}

/// What the two kinds of results have in common, and how they differ.
class ResultMessage {
public:
    ResultMessage(QENFx::Log::FileLog* log, COUL_R22Wrap& message) : log_(log), message_(message) {}
    ResultMessage(const ResultMessage&) = delete;
    ResultMessage& operator=(const ResultMessage&) = delete;
    virtual ~ResultMessage() = default;

    void Fill(const Row& summaryRow, Table& details) {
        bool cleaned = false;
        const MessageRow summary(summaryRow, cleaned);
        FillPatientAndSpecimen(summary);
        message_.SetOrder("NULL", summary.Text("SerialNumber"), summary.Text("PanelID"), "NULL");
        message_.SetOrderControl("NULL", "NULL");

        const std::string analysisTime = CTransferResult::ConvertDate(summary.Text("Date"), kDateAndTime);
        details.Reset();
        while (details.MoveNext()) {
            const Row* row = details.getCurrent();
            if (row == nullptr) {
                log_->WriteError("%s Cannot load 'Row'", kPacketTag);
                continue;
            }
            const MessageRow detail(*row, cleaned);
            // PC programs find the analyte in OBX-4; they expect OBX-3 to hold its coding system alone.
            Observation observation;
            observation.subId = detail.Text("AnalyteID");
            observation.value = detail.Text("Result");
            observation.analysisTime = analysisTime;
            observation.responsibleObserver = summary.Text("OperatorID");
            FillObservation(summary, detail, observation);
            log_->WriteInfo("sUserDefinePlus = \"%s\"", observation.userDefinedChecks.c_str());
            message_.AddObservation(observation);
        }
        message_.SetSubstanceLot(summary.Text("LOTNumber"));
        if (cleaned) {
            log_->WriteError("%s Control characters of the result are sent as blanks", kPacketTag);
        }
    }

protected:
    virtual void FillPatientAndSpecimen(const MessageRow& summary) = 0;
    /// Units, reference range and user-defined checks.
    virtual void FillObservation(const MessageRow& summary, const MessageRow& detail, Observation& observation) = 0;

    /// The beginning of the user-defined checks.
    static std::string Checks(const MessageRow& summary, const MessageRow& detail) {
        return summary.Text("ErrorCode") + "," + summary.Text("ErrorLevel") + "," + detail.Text("QCFlag");
    }

    QENFx::Log::FileLog* log_;
    COUL_R22Wrap& message_;
};

class PatientResultMessage : public ResultMessage {
public:
    using ResultMessage::ResultMessage;

private:
    void FillPatientAndSpecimen(const MessageRow& summary) override {
        message_.SetPatient(summary.Text("PatientID"), "", "",
                            CTransferResult::ConvertDate(summary.Text("Birth"), kDate), summary.Text("Sex"),
                            summary.Text("SpeciesID"), summary.Text("ClientID"), summary.Text("SpeciesClass"));
        message_.SetSpecimen(summary.Text("SpecimenType"), "P");
        message_.SetContainer(summary.Text("SerumIndexHEM"), summary.Text("SerumIndexLIP"),
                              summary.Text("SerumIndexICT"), summary.Text("ReagentVersion"));
        message_.SetInventory("", "", "", "");
    }

    void FillObservation(const MessageRow& summary, const MessageRow& detail, Observation& observation) override {
        observation.units = detail.Text("Unit");
        observation.referenceRange =
            rangeDisabled_ ? "0-0" : detail.Text("RefRange_Min") + "-" + detail.Text("RefRange_Max");
        const std::string age = summary.Text("Age");
        observation.userDefinedChecks = Checks(summary, detail) + ",EMPTY,EMPTY,EMPTY,EMPTY,";
        observation.userDefinedChecks += age.empty() ? "EMPTY" : age;
        observation.userDefinedChecks += DynamicRange(detail);
    }

    const bool rangeDisabled_ = CConfigMgr::GetInstance()->GetContents(kReferenceRangeDisable) == "1";
};

class ControlResultMessage : public ResultMessage {
public:
    using ResultMessage::ResultMessage;

private:
    void FillPatientAndSpecimen(const MessageRow& summary) override {
        message_.SetPatient(summary.Text("ControlID"), "", "", "", "", "", "", "");
        message_.SetSpecimen("Q");
        message_.SetContainer("", "", "", summary.Text("ReagentVersion"));
        message_.SetInventory(summary.Text("QCMaterialName"), summary.Text("QCMaterialLevel"),
                              summary.Text("QCMaterialLotNum"), summary.Text("QCMaterialExpiredDate"));
    }

    void FillObservation(const MessageRow& summary, const MessageRow& detail, Observation& observation) override {
        // Single precision, as ZELApp computes the limits that it shows.
        const auto mean = static_cast<float>(detail.Number("TargetMean"));
        const auto deviation = static_cast<float>(detail.Number("TargetSD"));
        char range[128];
        snprintf(range, sizeof(range), "%f-%f", static_cast<double>(mean - deviation),
                 static_cast<double>(mean + deviation));
        observation.referenceRange = range;
        observation.userDefinedChecks = Checks(summary, detail) + "," + detail.Text("SelectedRule") + "," +
                                        detail.Text("RuleFlag") + "," + detail.Text("Min") + "," + detail.Text("Max") +
                                        ",EMPTY" + DynamicRange(detail);
    }
};

}  // namespace

CTransferResult::CTransferResult(const RMUP::Process::ServiceContext& service)
    : log_(QENFx::Log::Logger::getLogger()->getLog(kLogName)), service_(service) {}

int CTransferResult::ProcessSendResult(CUDSMsg& request) {
    CDeviceInfo* device = &service_.device;
    device->SetStatus(DeviceStatus::kTransferResult);

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
        CUDSServer::GetInstance()->SendMessage(report.GetSendPacket(kUDSResultFailed, kFailure));
        device->SetStatus(DeviceStatus::kDisconnect);
        return -1;
    }

    MarkAsSent(kind, key);
    CUDSServer::GetInstance()->SendMessage(report.GetSendPacket(kUDSResultSent, {}));
    const auto payload = request.GetPayload();
    if (payload.size() > 1 && payload[1] == 1) {
        device->SetStatus(DeviceStatus::kRegistered);
    }
    return 0;
}

int CTransferResult::GetResultInfo(std::string& key) {
    static constexpr char kTag[] = "[CTransferResult::GetResultInfo]";
    constexpr std::size_t kPrefix = 2;
    constexpr std::size_t kLongestRequest = std::size_t{64} * 1024;  // longer than any condition
    const CDescriptor file = OpenRegularFile(kSendToPCFile, O_NOFOLLOW);
    std::string text(kLongestRequest + 1, '\0');
    const ssize_t count = TEMP_FAILURE_RETRY(read(file.Get(), text.data(), text.size()));
    text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    if (text.size() < kPrefix || text.size() > kLongestRequest) {
        log_->WriteError("%s Cannot read request file(%s)", kTag, kSendToPCFile);
        return -1;
    }
    key = text.substr(kPrefix, text.find('\0', kPrefix) - kPrefix);
    return static_cast<std::uint8_t>(text[0] - '0');
}

bool CTransferResult::Send(const std::string& hl7Text) {
    const auto peerID = static_cast<std::uint8_t>(CConfigMgr::GetInstance()->GetFirstChar(kPCPeerID));
    const auto session = CDeviceInfo::GetInstance()->GetSession();
    if (session == nullptr) {
        return false;
    }
    CPCMsg packet;
    const std::span payload(reinterpret_cast<const std::uint8_t*>(hl7Text.data()), hl7Text.size());
    return session->SendMessage(packet.MakePacket(kResult, 1, peerID, payload)) >= 0;
}

void CTransferResult::MarkAsSent(int kind, const std::string& key) {
    static constexpr char kTag[] = "[CTransferResult::ProcessSendResult]";
    CRmDao dao;
    if ((kind == kPatientResult ? dao.SetSyncResult(key) : dao.SetSyncCtrlResult(key)) < 0) {
        log_->WriteError("%s Write PCSync to 'true' error", kTag);
    }
}

int CTransferResult::SetHL7ResultPacket(int kind, const std::string& key, std::string& hl7Text) {
    hl7Text.clear();
    const bool patient = kind == kPatientResult;
    CRmDao dao;
    const CRmDao::Table summary = patient ? dao.GetResultSummary(key) : dao.GetControlSummary(key);
    if (summary == nullptr) {
        log_->WriteError("%s Get summary table error", kPacketTag);
        return -1;
    }
    const Row* row = FirstRow(*summary);
    if (row == nullptr) {
        log_->WriteError("%s Cannot load 'Row'", kPacketTag);
    }
    const CRmDao::Table details = patient ? dao.GetResultData(key) : dao.GetControlData(key);
    if (details == nullptr) {
        log_->WriteError("%s Get detail table error", kPacketTag);
        return -1;
    }

    COUL_R22Wrap message;
    message.SetHeader("ORVELA", "LAB", "NULL", "NULL", "0");
    // Without its summary row a result has nobody whom it belongs to: the header goes alone.
    if (row != nullptr && patient) {
        PatientResultMessage(log_, message).Fill(*row, *details);
    } else if (row != nullptr) {
        ControlResultMessage(log_, message).Fill(*row, *details);
    }
    message.GetMessageText(hl7Text);
    return 0;
}

std::string CTransferResult::ConvertDate(const std::string& text, int mode) {
    if ((mode != kDate && mode != kDateAndTime) || text.size() < 10) {
        return {};
    }
    std::string digits = text.substr(0, 4) + text.substr(5, 2) + text.substr(8, 2);
    if (mode == kDateAndTime && text.size() > 18) {
        digits += text.substr(11, 2) + text.substr(14, 2) + text.substr(17, 2);
    }
    return digits;
}
