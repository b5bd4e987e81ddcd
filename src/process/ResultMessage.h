#pragma once

#include <string>

#include "hl7wrap/COUL_R22Wrap.h"
#include "platform/Database.h"
#include "platform/Log.h"

namespace RMUP::Process {

/// Begins the lines that are logged while a result is loaded and its message built.
inline constexpr char kResultMessageTag[] = "[CTransferResult::SetHL7ResultPacket]";

/// One result as the database holds it: the row of its summary, and a row for each analyte.
struct ResultRows {
    const QENFx::Data::Collection::Row& summary;
    QENFx::Data::Collection::Table& details;
};

/// Fill a message that has its header. Control characters of the database's texts become blanks. With `rangesDisabled`
/// every analyte has the reference range "0-0".
void FillPatientResult(const ResultRows& rows, bool rangesDisabled, QENFx::Log::FileLog& log,
                       ZELHL7::COUL_R22Wrap& message);
void FillControlResult(const ResultRows& rows, QENFx::Log::FileLog& log, ZELHL7::COUL_R22Wrap& message);

/// What ConvertDate makes of a text.
inline constexpr int kDate = 1;
inline constexpr int kDateAndTime = 2;

/// The digits of a date "YYYY-MM-DD..." (mode 1) or of a date and time "YYYY-MM-DD hh:mm:ss" (mode 2, as far as the
/// text goes); empty for any other mode and for a text that is too short.
std::string ConvertDate(const std::string& text, int mode);

}  // namespace RMUP::Process
