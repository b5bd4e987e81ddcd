#pragma once

#include <string>

#include "net/CUDSMsg.h"
#include "platform/Log.h"
#include "process/update/ServiceContext.h"

/// Sends one finished result to the registered PC as an HL7 OUL^R22 message and marks it as sent. Made for one request
/// of ZELApp by the thread that received it.
class CTransferResult {
public:
    /// What the digit in the request file says; every other digit names a control result.
    static constexpr int kPatientResult = 1;

    explicit CTransferResult(const RMUP::Process::ServiceContext& service);

    /// The whole transfer, from the request file to the report to ZELApp. Returns 0 when the PC has the result, else
    /// -1.
    int ProcessSendResult(const CUDSMsg& request);

    /// Reads the request file: one digit for the kind, one separator, and the condition that selects the result in the
    /// database, up to a zero byte. Returns the digit's value (of any other byte some number above 9), or -1 when the
    /// file names nothing: it is missing, no regular file, shorter than two bytes or longer than 64 KiB.
    [[nodiscard]] int GetResultInfo(std::string& key);

    /// Loads a result and builds its message. Returns 0, or -1 with an empty text when the tables cannot be read.
    [[nodiscard]] int SetHL7ResultPacket(int kind, const std::string& key, std::string& hl7Text);

private:
    [[nodiscard]] bool Send(const std::string& hl7Text);
    void MarkAsSent(int kind, const std::string& key);

    QENFx::Log::FileLog* log_;
    const RMUP::Process::ServiceContext& service_;
};
