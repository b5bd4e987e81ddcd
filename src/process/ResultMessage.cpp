#include "process/ResultMessage.h"

#include <cstdio>

using QENFx::Data::Collection::Row;
using QENFx::Log::FileLog;
using ZELHL7::COUL_R22Wrap;
using ZELHL7::Observation;

namespace RMUP::Process {

namespace {

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

/// The end of an analyte's user-defined checks.
std::string DynamicRange(const MessageRow& detail) {
    if (!detail.Has("Dynamic_Min") || !detail.Has("Dynamic_Max")) {
        return {};
    }
    return "," + detail.Text("Dynamic_Min") + "," + detail.Text("Dynamic_Max");
}

/// One standard deviation around the target, in single precision, as ZELApp computes the limits that it shows.
std::string TargetRange(const MessageRow& detail) {
    const auto mean = static_cast<float>(detail.Number("TargetMean"));
    const auto deviation = static_cast<float>(detail.Number("TargetSD"));
    char range[128];
    std::snprintf(range, sizeof(range), "%f-%f", static_cast<double>(mean - deviation),
                  static_cast<double>(mean + deviation));
    return range;
}

/// Order, analytes and lot, which both kinds of results have; `fill` adds an analyte's units, its reference range and
/// its user-defined checks behind the QC flag.
template <class FillAnalyte>
void FillAnalytes(const MessageRow& summary, const ResultRows& rows, bool& cleaned, FileLog& log, COUL_R22Wrap& message,
                  const FillAnalyte& fill) {
    message.SetOrder({"NULL", summary.Text("SerialNumber"), summary.Text("PanelID"), "NULL"});
    message.SetOrderControl({"NULL", "NULL"});
    // PC programs find the analyte in OBX-4; they expect OBX-3 to hold its coding system alone.
    Observation observation;
    observation.analysisTime = ConvertDate(summary.Text("Date"), kDateAndTime);
    observation.responsibleObserver = summary.Text("OperatorID");
    const std::string errors = summary.Text("ErrorCode") + "," + summary.Text("ErrorLevel") + ",";
    rows.details.Reset();
    while (rows.details.MoveNext()) {
        const Row* row = rows.details.getCurrent();
        if (row == nullptr) {
            log.WriteError("%s Cannot load 'Row'", kResultMessageTag);
            continue;
        }
        const MessageRow detail(*row, cleaned);
        observation.subId = detail.Text("AnalyteID");
        observation.value = detail.Text("Result");
        observation.userDefinedChecks = errors + detail.Text("QCFlag");
        fill(detail, observation);
        log.WriteInfo("sUserDefinePlus = \"%s\"", observation.userDefinedChecks.c_str());
        message.AddObservation(observation);
    }
    message.SetSubstanceLot({summary.Text("LOTNumber")});
    if (cleaned) {
        log.WriteError("%s Control characters of the result are sent as blanks", kResultMessageTag);
    }
}

}  // namespace

void FillPatientResult(const ResultRows& rows, bool rangesDisabled, FileLog& log, COUL_R22Wrap& message) {
    bool cleaned = false;
    const MessageRow summary(rows.summary, cleaned);
    message.SetPatient({summary.Text("PatientID"), "", "", ConvertDate(summary.Text("Birth"), kDate),
                        summary.Text("Sex"), summary.Text("SpeciesID"), summary.Text("ClientID"),
                        summary.Text("SpeciesClass")});
    message.SetSpecimen(ZELHL7::Specimen{summary.Text("SpecimenType"), "P"});
    message.SetContainer({summary.Text("SerumIndexHEM"), summary.Text("SerumIndexLIP"), summary.Text("SerumIndexICT"),
                          summary.Text("ReagentVersion")});
    message.SetInventory({});
    const std::string age = summary.Text("Age");
    const std::string middle = ",EMPTY,EMPTY,EMPTY,EMPTY," + (age.empty() ? "EMPTY" : age);
    FillAnalytes(summary, rows, cleaned, log, message, [&](const MessageRow& detail, Observation& observation) {
        observation.units = detail.Text("Unit");
        observation.referenceRange =
            rangesDisabled ? "0-0" : detail.Text("RefRange_Min") + "-" + detail.Text("RefRange_Max");
        observation.userDefinedChecks += middle + DynamicRange(detail);
    });
}

void FillControlResult(const ResultRows& rows, FileLog& log, COUL_R22Wrap& message) {
    bool cleaned = false;
    const MessageRow summary(rows.summary, cleaned);
    ZELHL7::Patient control;
    control.patientId = summary.Text("ControlID");
    message.SetPatient(control);
    message.SetSpecimen("Q");
    message.SetContainer({"", "", "", summary.Text("ReagentVersion")});
    message.SetInventory({summary.Text("QCMaterialName"), summary.Text("QCMaterialLevel"),
                          summary.Text("QCMaterialLotNum"), summary.Text("QCMaterialExpiredDate")});
    FillAnalytes(summary, rows, cleaned, log, message, [](const MessageRow& detail, Observation& observation) {
        observation.referenceRange = TargetRange(detail);
        observation.userDefinedChecks += "," + detail.Text("SelectedRule") + "," + detail.Text("RuleFlag") + "," +
                                         detail.Text("Min") + "," + detail.Text("Max") + ",EMPTY" +
                                         DynamicRange(detail);
    });
}

std::string ConvertDate(const std::string& text, int mode) {
    if ((mode != kDate && mode != kDateAndTime) || text.size() < 10) {
        return {};
    }
    std::string digits = text.substr(0, 4) + text.substr(5, 2) + text.substr(8, 2);
    if (mode == kDateAndTime && text.size() > 18) {
        digits += text.substr(11, 2) + text.substr(14, 2) + text.substr(17, 2);
    }
    return digits;
}

}  // namespace RMUP::Process
