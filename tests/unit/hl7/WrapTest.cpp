#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <type_traits>
#include <vector>

#include "hl7wrap/CACKWrap.h"
#include "hl7wrap/COML_O33Wrap.h"
#include "hl7wrap/CORL_O34Wrap.h"
#include "hl7wrap/COUL_R22Wrap.h"
#include "hl7wrap/CQBP_Q13Wrap.h"
#include "hl7wrap/CRTB_K13Wrap.h"

namespace {

using namespace ZELHL7;

// The text with line feeds for carriage returns, and the time of writing, which it must hold, replaced.
std::string Untimed(std::string text) {
    std::replace(text.begin(), text.end(), '\r', '\n');
    std::size_t time = 0;
    for (int separator = 0; separator < 6; ++separator) {
        time = text.find('|', time) + 1;
    }
    const std::size_t length = text.find('|', time) - time;
    EXPECT_EQ(length, 14U) << text;
    EXPECT_EQ(text.find_first_not_of("0123456789", time), time + length) << text;
    return text.replace(time, length, "TIME");
}

template <class Wrap>
std::string TextOf(const Wrap& wrap) {
    std::string text;
    wrap.GetMessageText(text);
    return Untimed(text);
}

// The message of this structure that the document shows to those who write the other side.
std::string Shown(const std::string& structure) {
    std::ifstream document(ZELRM_HL7_DOCUMENT);
    std::string text;
    for (std::string line; std::getline(document, line);) {
        const bool begins = line.starts_with("    MSH|") && line.find("^" + structure + "|") != std::string::npos;
        if (begins || (!text.empty() && line.starts_with("    "))) {
            text += line.substr(4) + "\n";
        } else if (!text.empty()) {
            break;
        }
    }
    return Untimed(text);
}

// The members of a subject.
template <class Subject>
std::vector<std::string> Values(const Subject& subject) {
    constexpr std::size_t kCount = sizeof(Subject) / sizeof(std::string);
    if constexpr (kCount == 1) {
        const auto& [a] = subject;
        return {a};
    } else if constexpr (kCount == 2) {
        const auto& [a, b] = subject;
        return {a, b};
    } else if constexpr (kCount == 3) {
        const auto& [a, b, c] = subject;
        return {a, b, c};
    } else if constexpr (kCount == 4) {
        const auto& [a, b, c, d] = subject;
        return {a, b, c, d};
    } else if constexpr (kCount == 5) {
        const auto& [a, b, c, d, e] = subject;
        return {a, b, c, d, e};
    } else if constexpr (kCount == 6) {
        const auto& [a, b, c, d, e, f] = subject;
        return {a, b, c, d, e, f};
    } else {
        const auto& [a, b, c, d, e, f, g, h] = subject;
        return {a, b, c, d, e, f, g, h};
    }
}

// What a getter reads, or "absent".
template <class Wrap, class Subject>
std::string Got(const std::type_identity_t<Wrap>& wrap, int (Wrap::*get)(Subject&) const) {
    Subject subject;
    if ((wrap.*get)(subject) == 0) {
        return "absent";
    }
    std::string joined;
    for (const std::string& value : Values(subject)) {
        joined += value + ",";
    }
    joined.pop_back();
    return joined;
}

// Reads the text of `wrap` into a new wrapper, which must then write the same.
template <class Wrap>
void Reread(const Wrap& wrap, Wrap& read) {
    std::string text;
    wrap.GetMessageText(text);
    std::string_view rest = text;
    EXPECT_EQ(read.Decode(rest), 1);
    EXPECT_EQ(rest, "");
    std::string again;
    read.GetMessageText(again);
    EXPECT_EQ(again, text);
    EXPECT_EQ(Got(read, &Wrap::GetHeader), Got(wrap, &Wrap::GetHeader));
}

void SetHeader(COUL_R22Wrap& wrap) {
    wrap.SetHeader({"app", "fac", "to", "there", "17"});
}

// What the analyzer answers goes the other way than what it is asked.
template <class Wrap>
void SetHeader(Wrap& wrap, bool fromAnalyzer, const char* controlId) {
    if (fromAnalyzer) {
        wrap.SetHeader({"ORVELA", "LAB", "LabLink", "Clinic", controlId});
    } else {
        wrap.SetHeader({"LabLink", "Clinic", "ORVELA", "LAB", controlId});
    }
}

template <class Wrap>
void SetPatient(Wrap& wrap) {
    wrap.SetPatient({"P-4711", "Doe", "Jane", "19750309", "F", "CANINE", "W-3", "Dog"});
}

constexpr char kPatient[] = "P-4711,Doe,Jane,19750309,F,CANINE,W-3,Dog";

Observation SomeObservation(const std::string& subId, const std::string& loincCode) {
    return {.observationId = "obs",
            .subId = subId,
            .valueType = "NM",
            .value = "4.5",
            .referenceRange = "1-9",
            .units = "g/L",
            .abnormalFlags = "H",
            .analysisTime = "20260102030405",
            .responsibleObserver = "op",
            .equipmentId1 = "e1",
            .equipmentId2 = "e2",
            .userDefinedChecks = "0,1",
            .loincCode = loincCode};
}

TEST(OulR22Wrap, RoundTrip) {
    COUL_R22Wrap wrap;
    SetHeader(wrap);
    wrap.SetPatient({"P1", "Family", "Given", "20010203", "F", "DOG", "C1", "Canine"});
    wrap.SetSpecimen(Specimen{"SER", "P"});
    wrap.SetContainer({"1", "2", "3", "1.0"});
    EXPECT_EQ(Got(wrap, &COUL_R22Wrap::GetInventory), "absent");
    wrap.SetInventory({"text", "alt", "lot", "20301231"});
    wrap.SetOrder({"o1", "sn", "panel", "dr"});
    wrap.SetOrderControl({"o2", "20260102"});
    EXPECT_EQ(Got(wrap, &COUL_R22Wrap::GetSubstanceLot), "absent");
    wrap.AddObservation(SomeObservation("ALT", "0"));
    wrap.AddObservation(SomeObservation("AST", "1920-8"));
    wrap.AddObservation(SomeObservation("GGT", ""));
    wrap.SetSubstanceLot({"L9"});
    const std::string obx = "|4.5|g/L|1-9|H|||F||0,1|||op||e1^Kelvora~e2^Kelvora|20260102030405\n";
    EXPECT_EQ(TextOf(wrap),
              "MSH|^~\\&|app|fac|to|there|TIME||OUL^R22^OUL_R22|17|P|2.5.1|||ER|AL||UNICODE UTF-8|||LAB-29^IHE\n"
              "PID|||P1||Family^Given^^^^^L||20010203|F|||||||||||||C1||||||||||||||DOG^DOG^ORVELA^^Canine\n"
              "SPM|1|||SER|||||||P\n"
              "SAC||||||||||||||||||||||||||||||||1||2||3|||||||1.0^ReagentVersion^ORVELA\n"
              "INV|^text^^^alt|||||||||||20301231||||lot\n"
              "OBR||o1||sn^panel^ORVELA||||||||||||dr\n"
              "ORC|SC|o2|||||||20260102\n"
              "OBX|1|NM|obs^obs^ORVELA|ALT" +
                  obx +
                  "SID||L9\n"
                  "OBX|2|NM|1920-8^obs^LN|AST" +
                  obx + "OBX|3|NM|^obs^LN|GGT" + obx);
    // Moved from and to: a message may be filled by a function of its own.
    const COUL_R22Wrap moved = std::move(wrap);
    COUL_R22Wrap decoded;
    Reread(moved, decoded);
    const COUL_R22Wrap read = std::move(decoded);
    EXPECT_EQ(Got(read, &COUL_R22Wrap::GetPatient), "P1,Family,Given,20010203,F,DOG,C1,Canine");
    EXPECT_EQ(Got(read, &COUL_R22Wrap::GetSpecimen), "SER,P");
    EXPECT_EQ(Got(read, &COUL_R22Wrap::GetContainer), "1,2,3,1.0");
    EXPECT_EQ(Got(read, &COUL_R22Wrap::GetInventory), "text,alt,lot,20301231");
    EXPECT_EQ(Got(read, &COUL_R22Wrap::GetOrder), "o1,sn,panel,dr");
    EXPECT_EQ(Got(read, &COUL_R22Wrap::GetOrderControl), "o2,20260102");
    EXPECT_EQ(Got(read, &COUL_R22Wrap::GetSubstanceLot), "L9");
    Observation observation;
    ASSERT_EQ(read.GetObservation(1, observation), 1);
    EXPECT_EQ(observation.loincCode + observation.observationId + observation.subId + observation.valueType +
                  observation.value + observation.units + observation.referenceRange + observation.abnormalFlags +
                  observation.userDefinedChecks + observation.responsibleObserver + observation.analysisTime,
              "1920-8obsASTNM4.5g/L1-9H0,1op20260102030405");
    EXPECT_EQ(read.GetObservation(3, observation), 0);
    EXPECT_EQ(read.GetObservation(-1, observation), 0);
}

template <class Wrap>
int DecodeText(Wrap& wrap, std::string_view text, std::string_view expectedRest) {
    const int result = wrap.Decode(text);
    EXPECT_EQ(text, expectedRest);
    return result;
}

TEST(Wrap, DecodeStartsFromANewMessage) {
    COUL_R22Wrap wrap;
    SetHeader(wrap);
    wrap.SetPatient({"old", "", "", "", "", "", "", ""});
    EXPECT_EQ(DecodeText(wrap, "PID|||P1\r", "PID|||P1\r"), 0);
    EXPECT_EQ(Got(wrap, &COUL_R22Wrap::GetPatient), "absent");
    wrap.SetPatient({"old", "", "", "", "", "", "", ""});
    EXPECT_EQ(DecodeText(wrap, "MSH|^~\\&|other\rPID|||P2\rSPM|\rOBR|", ""), 1);
    EXPECT_EQ(Got(wrap, &COUL_R22Wrap::GetPatient), "P2,,,,,,,");
    EXPECT_EQ(Got(wrap, &COUL_R22Wrap::GetHeader), "other,,,,");
}

// Faults: orders lost in silence behind a segment that has no place or a line feed; another message taken for this one.
TEST(Wrap, DecodeTellsWhatItDidNotRead) {
    COML_O33Wrap wrap;
    const std::string front = "MSH|^~\\&|||||||OML^O33^OML_O33|||2.5\rSPM|1\rORC|NW|1\r";
    for (const std::string rest : {"", "ZXY|1\rORC|NW|2\r", "\nORC|NW|2\r", "NTE|1\r"}) {
        EXPECT_EQ(DecodeText(wrap, front + rest, rest), 1);
    }
    std::string version;
    EXPECT_EQ(wrap.GetVersion(version), 1);
    EXPECT_EQ(Got(wrap, &COML_O33Wrap::GetMessageType) + "," + version, "OML,O33,OML_O33,2.5");
    for (const std::string other : {"ORL^O34^ORL_O34", "OML^O21^OML_O33", "OML^O33^OML_O21", "ACK"}) {
        const std::string text = "MSH|^~\\&|||||||" + other + "\rSPM|1\rORC|NW|1\r";
        EXPECT_EQ(DecodeText(wrap, text, text), 0) << other;
    }
    CACKWrap answer;
    EXPECT_EQ(DecodeText(answer, "MSH|^~\\&|||||||ACK\rMSA|AA\r", ""), 1);
    EXPECT_EQ(DecodeText(answer, front, front), 0);
}

TEST(AckWrap, WritesAndReadsWhatIsShown) {
    CACKWrap wrap;
    SetHeader(wrap, false, "A-1");
    wrap.SetMessageType("R22");
    wrap.SetAcknowledgment({"AE", "0", "no such patient"});
    EXPECT_EQ(Got(wrap, &CACKWrap::GetError), "absent");
    wrap.SetError({"PID", "1", "3", "204", "Unknown key identifier", "E"});
    EXPECT_EQ(TextOf(wrap), Shown("ACK"));
    CACKWrap read;
    Reread(wrap, read);
    EXPECT_EQ(Got(read, &CACKWrap::GetHeader), "LabLink,Clinic,ORVELA,LAB,A-1");
    EXPECT_EQ(Got(read, &CACKWrap::GetMessageType), "ACK,R22,ACK");
    EXPECT_EQ(Got(read, &CACKWrap::GetAcknowledgment), "AE,0,no such patient");
    EXPECT_EQ(Got(read, &CACKWrap::GetError), "PID,1,3,204,Unknown key identifier,E");
}

TEST(OmlO33Wrap, WritesAndReadsWhatIsShown) {
    COML_O33Wrap wrap;
    WorkOrder order;
    EXPECT_EQ(wrap.GetOrder(0, order), 0);
    EXPECT_EQ(Got(wrap, &COML_O33Wrap::GetPatient), "absent");
    EXPECT_EQ(Got(wrap, &COML_O33Wrap::GetSpecimen), "absent");
    SetHeader(wrap, false, "M-17");
    SetPatient(wrap);
    EXPECT_EQ(Got(wrap, &COML_O33Wrap::GetVisit), "absent");
    wrap.SetVisit({"I", "V-9"});
    wrap.SetSpecimen({"S-42", "SER", "P"});
    EXPECT_EQ(Got(wrap, &COML_O33Wrap::GetContainer), "absent");
    wrap.SetContainer({"T-7", "C-2", "5"});
    wrap.AddOrder({"NW", "O-1", "20230517140000", "S", "LIVER6", "Liver 6", "Miller"});
    wrap.AddOrder({"NW", "O-2", "20230517140001", "R", "RENAL2", "Renal 2", "Miller"});
    EXPECT_EQ(TextOf(wrap), Shown("OML_O33"));
    COML_O33Wrap read;
    Reread(wrap, read);
    EXPECT_EQ(Got(read, &COML_O33Wrap::GetPatient), kPatient);
    EXPECT_EQ(Got(read, &COML_O33Wrap::GetVisit), "I,V-9");
    EXPECT_EQ(Got(read, &COML_O33Wrap::GetSpecimen), "S-42,SER,P");
    EXPECT_EQ(Got(read, &COML_O33Wrap::GetContainer), "T-7,C-2,5");
    ASSERT_EQ(read.GetOrder(1, order), 1);
    EXPECT_EQ(order.orderControl + order.placerOrderNumber + order.transactionTime + order.priority + order.serviceId +
                  order.serviceText + order.orderingProvider,
              "NWO-220230517140001RRENAL2Renal 2Miller");
    EXPECT_EQ(read.GetOrder(2, order), 0);
}

TEST(OrlO34Wrap, WritesAndReadsWhatIsShown) {
    CORL_O34Wrap wrap;
    OrderAnswer answer;
    EXPECT_EQ(wrap.GetOrder(0, answer), 0);
    EXPECT_EQ(Got(wrap, &CORL_O34Wrap::GetPatient), "absent");
    SetHeader(wrap, true, "0");
    wrap.SetAcknowledgment({"AA", "M-17", ""});
    wrap.SetError({"OBR", "2", "4", "103", "Table value not found", "W"});
    SetPatient(wrap);
    wrap.SetSpecimen({"S-42", "SER", "P"});
    EXPECT_EQ(Got(wrap, &CORL_O34Wrap::GetContainer), "absent");
    wrap.SetContainer({"T-7", "C-2", "5"});
    wrap.AddOrder({"OK", "O-1", "F-1", "SC", "20230517140002"});
    wrap.AddOrder({"UA", "O-2", "F-2", "CA", "20230517140003"});
    EXPECT_EQ(TextOf(wrap), Shown("ORL_O34"));
    CORL_O34Wrap read;
    Reread(wrap, read);
    EXPECT_EQ(Got(read, &CORL_O34Wrap::GetAcknowledgment), "AA,M-17,");
    EXPECT_EQ(Got(read, &CORL_O34Wrap::GetError), "OBR,2,4,103,Table value not found,W");
    EXPECT_EQ(Got(read, &CORL_O34Wrap::GetPatient), kPatient);
    EXPECT_EQ(Got(read, &CORL_O34Wrap::GetSpecimen), "S-42,SER,P");
    EXPECT_EQ(Got(read, &CORL_O34Wrap::GetContainer), "T-7,C-2,5");
    ASSERT_EQ(read.GetOrder(1, answer), 1);
    EXPECT_EQ(answer.orderControl + answer.placerOrderNumber + answer.fillerOrderNumber + answer.orderStatus +
                  answer.transactionTime,
              "UAO-2F-2CA20230517140003");
    EXPECT_EQ(read.GetOrder(2, answer), 0);
}

TEST(QbpQ13Wrap, WritesAndReadsWhatIsShown) {
    CQBP_Q13Wrap wrap;
    SetHeader(wrap, true, "Q-5");
    wrap.SetQuery({"WOS", "Work Order Step", "TAG-8", "S-42"});
    EXPECT_EQ(Got(wrap, &CQBP_Q13Wrap::GetColumn), "absent");
    wrap.SetColumn({"PlacerOrderNumber", "EI", "20"});
    wrap.SetResponseControl({"I", "10", "R"});
    EXPECT_EQ(TextOf(wrap), Shown("QBP_Q13"));
    CQBP_Q13Wrap read;
    Reread(wrap, read);
    EXPECT_EQ(Got(read, &CQBP_Q13Wrap::GetQuery), "WOS,Work Order Step,TAG-8,S-42");
    EXPECT_EQ(Got(read, &CQBP_Q13Wrap::GetColumn), "PlacerOrderNumber,EI,20");
    EXPECT_EQ(Got(read, &CQBP_Q13Wrap::GetResponseControl), "I,10,R");
}

TEST(RtbK13Wrap, WritesAndReadsWhatIsShown) {
    CRTB_K13Wrap wrap;
    std::string row;
    EXPECT_EQ(wrap.GetRow(0, row), 0);
    SetHeader(wrap, false, "K-5");
    wrap.SetAcknowledgment({"AA", "Q-5", ""});
    wrap.SetError({"QPD", "1", "3", "207", "Cut short", "I"});
    wrap.SetQueryStatus({"TAG-8", "OK", "3", "2", "1"});
    wrap.SetQuery({"WOS", "Work Order Step", "TAG-8", "S-42"});
    EXPECT_EQ(Got(wrap, &CRTB_K13Wrap::GetColumn), "absent");
    wrap.SetColumn({"PlacerOrderNumber", "EI", "20"});
    wrap.AddRow("O-1");
    wrap.AddRow("O-2");
    EXPECT_EQ(TextOf(wrap), Shown("RTB_K13"));
    CRTB_K13Wrap read;
    Reread(wrap, read);
    EXPECT_EQ(Got(read, &CRTB_K13Wrap::GetQueryStatus), "TAG-8,OK,3,2,1");
    EXPECT_EQ(Got(read, &CRTB_K13Wrap::GetQuery), "WOS,Work Order Step,TAG-8,S-42");
    ASSERT_EQ(read.GetRow(1, row), 1);
    EXPECT_EQ(row, "O-2");
    EXPECT_EQ(read.GetRow(2, row), 0);
}

}  // namespace
