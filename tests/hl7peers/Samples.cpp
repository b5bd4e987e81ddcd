#include "Samples.h"

#include "hl7wrap/CACKWrap.h"
#include "hl7wrap/COML_O33Wrap.h"
#include "hl7wrap/CORL_O34Wrap.h"
#include "hl7wrap/COUL_R22Wrap.h"
#include "hl7wrap/CQBP_Q13Wrap.h"
#include "hl7wrap/CRTB_K13Wrap.h"

namespace {

template <class Wrap>
std::string TextOf(const Wrap& wrap) {
    std::string text;
    wrap.GetMessageText(text);
    return text;
}

/// What the analyzer answers goes the other way than what it is asked.
template <class Wrap>
void SetHeader(Wrap& wrap, bool fromAnalyzer, const char* controlId) {
    if (fromAnalyzer) {
        wrap.SetHeader("ORVELA", "LAB", "LabLink", "Clinic", controlId);
    } else {
        wrap.SetHeader("LabLink", "Clinic", "ORVELA", "LAB", controlId);
    }
}

template <class Wrap>
void SetPatient(Wrap& wrap) {
    wrap.SetPatient("P-4711", "Doe", "Jane", "19750309", "F", "CANINE", "W-3", "Dog");
}

template <class Wrap>
void SetSpecimen(Wrap& wrap) {
    wrap.SetSpecimen("S-42", "SER", "P");
    wrap.SetContainer("T-7", "C-2", "5");
}

std::string Acknowledgment() {
    ZELHL7::CACKWrap wrap;
    SetHeader(wrap, false, "A-1");
    wrap.SetMessageType("R22");
    wrap.SetAcknowledgment("AE", "0", "no such patient");
    wrap.SetError("PID", "1", "3", "204", "Unknown key identifier", "E");
    return TextOf(wrap);
}

std::string WorkOrder() {
    ZELHL7::COML_O33Wrap wrap;
    SetHeader(wrap, false, "M-17");
    SetPatient(wrap);
    wrap.SetVisit("I", "V-9");
    SetSpecimen(wrap);
    wrap.AddOrder({"NW", "O-1", "20230517140000", "S", "LIVER6", "Liver 6", "Miller"});
    wrap.AddOrder({"NW", "O-2", "20230517140001", "R", "RENAL2", "Renal 2", "Miller"});
    return TextOf(wrap);
}

std::string OrderAnswer() {
    ZELHL7::CORL_O34Wrap wrap;
    SetHeader(wrap, true, "0");
    wrap.SetAcknowledgment("AA", "M-17", "");
    wrap.SetError("OBR", "2", "4", "103", "Table value not found", "W");
    SetPatient(wrap);
    SetSpecimen(wrap);
    wrap.AddOrder({"OK", "O-1", "F-1", "SC", "20230517140002"});
    wrap.AddOrder({"UA", "O-2", "F-2", "CA", "20230517140003"});
    return TextOf(wrap);
}

std::string Result() {
    ZELHL7::COUL_R22Wrap wrap;
    SetHeader(wrap, true, "0");
    SetPatient(wrap);
    wrap.SetSpecimen("SER", "P");
    wrap.SetContainer("1", "2", "0", "3.1");
    wrap.SetInventory("Orvela Control", "Level 1", "QL77", "20241231");
    wrap.SetOrder("O-1", "D0815", "Liver 6", "Miller");
    wrap.SetOrderControl("O-1", "20230517140000");
    wrap.AddObservation({"Alanine aminotransferase", "ALT", "NM", "31.5", "5.5-40.5", "U/L", "N", "20230517140359",
                         "miller", "D0815", "R3.1", "0,0,0", "1742-6"});
    wrap.AddObservation({"AST", "AST", "NM", "52.25", "5.5-35.5", "U/L", "H", "20230517140359", "miller", "D0815",
                         "R3.1", "0,0,1", "0"});
    wrap.SetSubstanceLot("L2309");
    return TextOf(wrap);
}

std::string Query() {
    ZELHL7::CQBP_Q13Wrap wrap;
    SetHeader(wrap, true, "Q-5");
    wrap.SetQuery("WOS", "Work Order Step", "TAG-8", "S-42");
    wrap.SetColumn("PlacerOrderNumber", "EI", "20");
    wrap.SetResponseControl("I", "10", "R");
    return TextOf(wrap);
}

std::string QueryAnswer() {
    ZELHL7::CRTB_K13Wrap wrap;
    SetHeader(wrap, false, "K-5");
    wrap.SetAcknowledgment("AA", "Q-5", "");
    wrap.SetError("QPD", "1", "3", "207", "Cut short", "I");
    wrap.SetQueryStatus("TAG-8", "OK", "3", "2", "1");
    wrap.SetQuery("WOS", "Work Order Step", "TAG-8", "S-42");
    wrap.SetColumn("PlacerOrderNumber", "EI", "20");
    wrap.AddRow("O-1");
    wrap.AddRow("O-2");
    return TextOf(wrap);
}

}  // namespace

std::string SampleMessage(const std::string& structure) {
    return structure == "ACK"       ? Acknowledgment()
           : structure == "OML_O33" ? WorkOrder()
           : structure == "ORL_O34" ? OrderAnswer()
           : structure == "OUL_R22" ? Result()
           : structure == "QBP_Q13" ? Query()
           : structure == "RTB_K13" ? QueryAnswer()
                                    : "";
}
