#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <tuple>
#include <type_traits>

#include "hl7wrap/CACKWrap.h"
#include "hl7wrap/COML_O33Wrap.h"
#include "hl7wrap/CORL_O34Wrap.h"
#include "hl7wrap/COUL_R22Wrap.h"
#include "hl7wrap/CQBP_Q13Wrap.h"
#include "hl7wrap/CRTB_K13Wrap.h"

namespace {

using namespace ZELHL7;

// The text with line feeds for carriage returns, and the time of writing, which it must hold, replaced.
template <class Wrap>
std::string TextOf(const Wrap& wrap) {
    std::string text;
    wrap.GetMessageText(text);
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

// What a getter reads into its outputs, or "absent".
template <class Wrap, class... Outs>
std::string Got(const std::type_identity_t<Wrap>& wrap, int (Wrap::*get)(Outs...) const) {
    std::array<std::string, sizeof...(Outs)> values;
    const int result = std::apply([&](auto&... outs) { return (wrap.*get)(outs...); }, values);
    if (result == 0) {
        return "absent";
    }
    std::string joined = values[0];
    for (std::size_t index = 1; index < values.size(); ++index) {
        joined += "," + values[index];
    }
    return joined;
}

// Reads the text of `wrap` into a new wrapper, which must then write the same.
template <class Wrap>
void Reread(const Wrap& wrap, Wrap& read) {
    std::string text;
    wrap.GetMessageText(text);
    EXPECT_EQ(read.Decode(text), 1);
    std::string again;
    read.GetMessageText(again);
    EXPECT_EQ(again, text);
    EXPECT_EQ(Got(read, &Wrap::GetHeader), "app,fac,to,there,17");
}

template <class Wrap>
void SetHeader(Wrap& wrap) {
    wrap.SetHeader("app", "fac", "to", "there", "17");
}

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
    wrap.SetPatient("P1", "Family", "Given", "20010203", "F", "DOG", "C1", "Canine");
    wrap.SetSpecimen("SER", "P");
    wrap.SetContainer("1", "2", "3", "1.0");
    EXPECT_EQ(Got(wrap, &COUL_R22Wrap::GetInventory), "absent");
    wrap.SetInventory("text", "alt", "lot", "20301231");
    wrap.SetOrder("o1", "sn", "panel", "dr");
    wrap.SetOrderControl("o2", "20260102");
    EXPECT_EQ(Got(wrap, &COUL_R22Wrap::GetSubstanceLot), "absent");
    wrap.AddObservation(SomeObservation("ALT", "0"));
    wrap.AddObservation(SomeObservation("AST", "1920-8"));
    wrap.AddObservation(SomeObservation("GGT", ""));
    wrap.SetSubstanceLot("L9");
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
    COUL_R22Wrap read;
    Reread(wrap, read);
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

TEST(OulR22Wrap, EmptySpeciesAndClientLeaveTheirFieldsEmpty) {
    COUL_R22Wrap wrap;
    SetHeader(wrap);
    wrap.SetPatient("P1", "", "", "", "", "", "", "Canine");
    wrap.SetSpecimen("Q");
    wrap.SetContainer("", "", "");
    EXPECT_TRUE(TextOf(wrap).ends_with("PID|||P1||^^^^^^L\nSPM|1|||BLD|||||||Q\nSAC|\n"));
}

TEST(OulR22Wrap, NothingIsThereAtFirst) {
    const COUL_R22Wrap empty;
    EXPECT_EQ(Got(empty, &COUL_R22Wrap::GetPatient), "absent");
    EXPECT_EQ(Got(empty, &COUL_R22Wrap::GetSpecimen), "absent");
    EXPECT_EQ(Got(empty, &COUL_R22Wrap::GetContainer), "absent");
    EXPECT_EQ(Got(empty, &COUL_R22Wrap::GetInventory), "absent");
    EXPECT_EQ(Got(empty, &COUL_R22Wrap::GetOrder), "absent");
    EXPECT_EQ(Got(empty, &COUL_R22Wrap::GetOrderControl), "absent");
    EXPECT_EQ(Got(empty, &COUL_R22Wrap::GetSubstanceLot), "absent");
    Observation observation = SomeObservation("kept", "");
    EXPECT_EQ(empty.GetObservation(0, observation), 0);
    EXPECT_EQ(observation.subId, "kept");
}

TEST(Wrap, DecodeStartsFromANewMessage) {
    COUL_R22Wrap wrap;
    SetHeader(wrap);
    wrap.SetPatient("old", "", "", "", "", "", "", "");
    EXPECT_EQ(wrap.Decode("PID|||P1\r"), 0);
    EXPECT_EQ(Got(wrap, &COUL_R22Wrap::GetPatient), "absent");
    wrap.SetPatient("old", "", "", "", "", "", "", "");
    EXPECT_EQ(wrap.Decode("MSH|^~\\&|other\rPID|||P2\rSPM|\rOBR|"), 1);
    EXPECT_EQ(Got(wrap, &COUL_R22Wrap::GetPatient), "P2,,,,,,,");
    EXPECT_EQ(Got(wrap, &COUL_R22Wrap::GetHeader), "other,,,,");
}

TEST(AckWrap, RoundTrip) {
    CACKWrap wrap;
    SetHeader(wrap);
    wrap.SetMessageType("R22");
    wrap.SetAcknowledgment("AE", "16", "text");
    EXPECT_EQ(Got(wrap, &CACKWrap::GetError), "absent");
    wrap.SetError("OBX", "2", "5", "102", "Data type error", "E");
    EXPECT_EQ(TextOf(wrap),
              "MSH|^~\\&|app|fac|to|there|TIME||ACK^R22^ACK|17|P|2.5.1|||NE|NE||UNICODE UTF-8\n"
              "MSA|AE|16|text\n"
              "ERR||OBX^2^5|102^Data type error^HL70357|E\n");
    CACKWrap read;
    Reread(wrap, read);
    EXPECT_EQ(Got(read, &CACKWrap::GetMessageType), "R22");
    EXPECT_EQ(Got(read, &CACKWrap::GetAcknowledgment), "AE,16,text");
    EXPECT_EQ(Got(read, &CACKWrap::GetError), "OBX,2,5,102,Data type error,E");
}

TEST(OmlO33Wrap, RoundTrip) {
    COML_O33Wrap wrap;
    WorkOrder order;
    EXPECT_EQ(wrap.GetOrder(0, order), 0);
    EXPECT_EQ(Got(wrap, &COML_O33Wrap::GetPatient), "absent");
    EXPECT_EQ(Got(wrap, &COML_O33Wrap::GetSpecimen), "absent");
    SetHeader(wrap);
    wrap.SetPatient("P1", "Family", "Given", "20010203", "F", "DOG", "C1", "Canine");
    EXPECT_EQ(Got(wrap, &COML_O33Wrap::GetVisit), "absent");
    wrap.SetVisit("O", "V7");
    wrap.SetSpecimen("S1", "SER", "P");
    EXPECT_EQ(Got(wrap, &COML_O33Wrap::GetContainer), "absent");
    wrap.SetContainer("T1", "R2", "3");
    wrap.AddOrder({"NW", "o1", "20260102", "S", "ALT", "Alanine", "dr"});
    wrap.AddOrder({"CA", "o2", "20260103", "", "AST", "Aspartate", "dr"});
    EXPECT_EQ(TextOf(wrap),
              "MSH|^~\\&|app|fac|to|there|TIME||OML^O33^OML_O33|17|P|2.5.1|||ER|AL||UNICODE UTF-8|||LAB-28^IHE\n"
              "PID|||P1||Family^Given^^^^^L||20010203|F|||||||||||||C1||||||||||||||DOG^DOG^ORVELA^^Canine\n"
              "PV1||O|||||||||||||||||V7\n"
              "SPM|1|S1||SER|||||||P\n"
              "SAC|||T1|||||||R2|3\n"
              "ORC|NW|o1|||||||20260102\n"
              "TQ1|||||||||S\n"
              "OBR|1|o1||ALT^Alanine^ORVELA||||||||||||dr\n"
              "ORC|CA|o2|||||||20260103\n"
              "OBR|2|o2||AST^Aspartate^ORVELA||||||||||||dr\n");
    COML_O33Wrap read;
    Reread(wrap, read);
    EXPECT_EQ(Got(read, &COML_O33Wrap::GetPatient), "P1,Family,Given,20010203,F,DOG,C1,Canine");
    EXPECT_EQ(Got(read, &COML_O33Wrap::GetVisit), "O,V7");
    EXPECT_EQ(Got(read, &COML_O33Wrap::GetSpecimen), "S1,SER,P");
    EXPECT_EQ(Got(read, &COML_O33Wrap::GetContainer), "T1,R2,3");
    ASSERT_EQ(read.GetOrder(0, order), 1);
    EXPECT_EQ(order.orderControl + order.placerOrderNumber + order.transactionTime + order.priority + order.serviceId +
                  order.serviceText + order.orderingProvider,
              "NWo120260102SALTAlaninedr");
    ASSERT_EQ(read.GetOrder(1, order), 1);
    EXPECT_EQ(order.priority + order.serviceId, "AST");
    EXPECT_EQ(read.GetOrder(2, order), 0);
}

TEST(OrlO34Wrap, RoundTrip) {
    CORL_O34Wrap wrap;
    OrderAnswer answer;
    EXPECT_EQ(wrap.GetOrder(0, answer), 0);
    EXPECT_EQ(Got(wrap, &CORL_O34Wrap::GetPatient), "absent");
    SetHeader(wrap);
    wrap.SetAcknowledgment("AA", "16", "");
    wrap.SetError("SPM", "1", "4", "103", "Table value not found", "W");
    wrap.SetPatient("P1", "Family", "Given", "20010203", "F", "", "", "");
    wrap.SetSpecimen("S1", "SER", "P");
    EXPECT_EQ(Got(wrap, &CORL_O34Wrap::GetContainer), "absent");
    wrap.SetContainer("T1", "R2", "3");
    wrap.AddOrder({"OK", "o1", "f1", "SC", "20260102"});
    wrap.AddOrder({"UA", "o2", "f2", "CA", "20260103"});
    EXPECT_EQ(TextOf(wrap),
              "MSH|^~\\&|app|fac|to|there|TIME||ORL^O34^ORL_O34|17|P|2.5.1|||NE|NE||UNICODE UTF-8|||LAB-28^IHE\n"
              "MSA|AA|16\n"
              "ERR||SPM^1^4|103^Table value not found^HL70357|W\n"
              "PID|||P1||Family^Given^^^^^L||20010203|F\n"
              "SPM|1|S1||SER|||||||P\n"
              "SAC|||T1|||||||R2|3\n"
              "ORC|OK|o1|f1||SC||||20260102\n"
              "ORC|UA|o2|f2||CA||||20260103\n");
    CORL_O34Wrap read;
    Reread(wrap, read);
    EXPECT_EQ(Got(read, &CORL_O34Wrap::GetAcknowledgment), "AA,16,");
    EXPECT_EQ(Got(read, &CORL_O34Wrap::GetError), "SPM,1,4,103,Table value not found,W");
    EXPECT_EQ(Got(read, &CORL_O34Wrap::GetPatient), "P1,Family,Given,20010203,F,,,");
    EXPECT_EQ(Got(read, &CORL_O34Wrap::GetSpecimen), "S1,SER,P");
    EXPECT_EQ(Got(read, &CORL_O34Wrap::GetContainer), "T1,R2,3");
    ASSERT_EQ(read.GetOrder(1, answer), 1);
    EXPECT_EQ(answer.orderControl + answer.placerOrderNumber + answer.fillerOrderNumber + answer.orderStatus +
                  answer.transactionTime,
              "UAo2f2CA20260103");
    EXPECT_EQ(read.GetOrder(2, answer), 0);
}

TEST(QbpQ13Wrap, RoundTrip) {
    CQBP_Q13Wrap wrap;
    SetHeader(wrap);
    wrap.SetQuery("Q1", "Work of specimen", "tag", "S1");
    EXPECT_EQ(Got(wrap, &CQBP_Q13Wrap::GetColumn), "absent");
    wrap.SetColumn("Test", "ST", "20");
    wrap.SetResponseControl("I", "50", "R");
    EXPECT_EQ(TextOf(wrap),
              "MSH|^~\\&|app|fac|to|there|TIME||QBP^Q13^QBP_Q13|17|P|2.5.1|||ER|AL||UNICODE UTF-8\n"
              "QPD|Q1^Work of specimen^ORVELA|tag|S1\n"
              "RDF|1|Test^ST^20\n"
              "RCP|I|50^RD|R\n");
    CQBP_Q13Wrap read;
    Reread(wrap, read);
    EXPECT_EQ(Got(read, &CQBP_Q13Wrap::GetQuery), "Q1,Work of specimen,tag,S1");
    EXPECT_EQ(Got(read, &CQBP_Q13Wrap::GetColumn), "Test,ST,20");
    EXPECT_EQ(Got(read, &CQBP_Q13Wrap::GetResponseControl), "I,50,R");
}

TEST(RtbK13Wrap, RoundTrip) {
    CRTB_K13Wrap wrap;
    std::string row;
    EXPECT_EQ(wrap.GetRow(0, row), 0);
    SetHeader(wrap);
    wrap.SetAcknowledgment("AA", "16", "");
    wrap.SetQueryStatus("tag", "OK", "5", "2", "3");
    wrap.SetQuery("Q1", "Work of specimen", "tag", "S1");
    EXPECT_EQ(Got(wrap, &CRTB_K13Wrap::GetColumn), "absent");
    wrap.SetColumn("Test", "ST", "20");
    wrap.AddRow("ALT");
    wrap.AddRow("AST");
    EXPECT_EQ(TextOf(wrap),
              "MSH|^~\\&|app|fac|to|there|TIME||RTB^K13^RTB_K13|17|P|2.5.1|||NE|NE||UNICODE UTF-8\n"
              "MSA|AA|16\n"
              "QAK|tag|OK||5|2|3\n"
              "QPD|Q1^Work of specimen^ORVELA|tag|S1\n"
              "RDF|1|Test^ST^20\n"
              "RDT|ALT\n"
              "RDT|AST\n");
    CRTB_K13Wrap read;
    Reread(wrap, read);
    EXPECT_EQ(Got(read, &CRTB_K13Wrap::GetQueryStatus), "tag,OK,5,2,3");
    EXPECT_EQ(Got(read, &CRTB_K13Wrap::GetQuery), "Q1,Work of specimen,tag,S1");
    EXPECT_EQ(Got(read, &CRTB_K13Wrap::GetColumn), "Test,ST,20");
    ASSERT_EQ(read.GetRow(1, row), 1);
    EXPECT_EQ(row, "AST");
    EXPECT_EQ(read.GetRow(2, row), 0);
}

}  // namespace
