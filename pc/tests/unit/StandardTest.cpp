#include <gtest/gtest.h>

#include "Results.h"
#include "deliver/LoincTable.h"
#include "deliver/Standard.h"

namespace ZELPC {
namespace {

constexpr char kPatient[] =
    "MSH|^~\\&|ORVELA|LAB|NULL|NULL|20261121103637||OUL^R22^OUL_R22|0|P|2.5.1|||ER|AL||UNICODE UTF-8|||LAB-29^IHE\r"
    "PID|||R\\x & ~1||^^^^^^L||20191130|M|||||||||||||Doe||||||||||||||CANINE^CANINE^ORVELA^^Dog\r"
    "SPM|1|||PLA|||||||P\rSAC||||||||||||||||||||||||||||||||0||0||0|||||||3.2^ReagentVersion^ORVELA\rINV|\r"
    "OBR||NULL||D0816^Renal 2^ORVELA||||||||||||NULL\rORC|SC|NULL|||||||NULL\r"
    "OBX|1||^^LN|BUN|17.5|mg/dL|0-0||||F||0,0,0,EMPTY|||vet||^Kelvora~^Kelvora|20230601080001\rSID||L2310\r"
    "OBX|2||^^LN|ODD|<1e-05||-||||F|||||vet||^Kelvora~^Kelvora|2023-06-01 08:00:01\r";

constexpr char kPatientStandard[] =
    "MSH|^~\\&|GW|LAB|LIS||20261121103637||OUL^R22^OUL_R22|S-1|P|2.5.1|||ER|AL||UNICODE UTF-8|||LAB-29^IHE\r"
    "PID|||R\\E\\x \\T\\ \\R\\1||^^^^^^L||20191130|M|||||||||||||Doe||||||||||||||CANINE^CANINE^ORVELA^^Dog\r"
    "SPM|1|||PLA|||||||P\rSAC||||||||||||||||||||||||||||||||0||0||0|||||||3.2^ReagentVersion^ORVELA\rINV|\r"
    "OBR||||D0816^Renal 2^ORVELA\rORC|SC\r"
    "OBX|1|NM|3094-0^BUN^LN|BUN|17.5|mg/dL|||||F||0,0,0,EMPTY|||vet||^Kelvora~^Kelvora|20230601080001\rSID||L2310\r"
    "OBX|2|ST|ODD^ODD^ORVELA|ODD|<1e-05||||||F|||||vet||^Kelvora~^Kelvora|20230601080001\r";

constexpr char kControl[] =
    "MSH|^~\\&|ORVELA|LAB|NULL|NULL|20261121103637||OUL^R22^OUL_R22|0|P|2.5.1\rPID|||QC-1||^^^^^^L\r"
    "SPM|1|||BLD|||||||Q\rSAC|\rINV|^Orvela Control^^^Level 1|||||||||||2024-12-31||||QL77\r"
    "OBR||NULL||D0817^Control^ORVELA\rORC|SC|NULL\rOBX|1||^^LN|ALT|-41.5||0-0||||F\r";

constexpr char kControlStandard[] =
    "MSH|^~\\&|GW|LAB|LIS||20261121103637||OUL^R22^OUL_R22|S-1|P|2.5.1\rPID|||QC-1||^^^^^^L\r"
    "SPM|1|||BLD|||||||Q\rSAC|\rINV|^Orvela Control^^^Level 1|||||||||||20241231||||QL77\r"
    "OBR||||D0817^Control^ORVELA\rORC|SC\rOBX|1|NM|ALT^ALT^ORVELA|ALT|-41.5||0-0||||F\r";

DestinationOptions Options() {
    DestinationOptions options;
    options.names.sendingApplication = "GW";
    options.names.receivingApplication = "LIS";
    options.loinc = ReadLoincTable("# analyte,code\nBUN,3094-0,Urea nitrogen\r\n");
    return options;
}

TEST(StandardTest, TheStandardTextSaysWhatTheAnalyzerSaidByTheBook) {
    EXPECT_EQ(MakeStandard(kPatient, "S-1", Options()).text, kPatientStandard);
    EXPECT_EQ(MakeStandard(kControl, "S-1", Options()).text, kControlStandard);
}

TEST(StandardTest, WhatWouldLoseSomethingIsRefused) {
    const std::string text = ResultMessage("Rex");
    const std::string cases[] = {text + "ZZZ|what the library does not know\r",   // a segment
                                 text + "OBX|2|" + std::string(40, '|') + "x\r",  // a field beyond the last
                                 text.substr(0, text.size() - 1),                 // cut, or without its end
                                 text.substr(0, text.find("SPM")) + "NTE|1\r" + text.substr(text.find("SPM")), "",
                                 // what another reader takes for one more segment, or for the end of the message
                                 text.substr(0, text.size() - 1) + "|a\nOBX|9\r",
                                 text.substr(0, text.size() - 1) + "|a\x1C\r"};
    for (const std::string& lossy : cases) {
        const StandardText standard = MakeStandard(lossy, "S-1", Options());
        EXPECT_NE(standard.error, "") << lossy;
        EXPECT_EQ(standard.text, "") << lossy;
    }
}

TEST(StandardTest, ALoincTableWithAnErrorIsRefusedWithItsLine) {
    EXPECT_EQ(ReadLoincTable("\"ALT\" , 1742-6\nAST,1920-8").size(), 2U);
    for (const char* table :
         {"#\nALT,1742-5", "#\nALT", "#\nALT,", "#\n,1742-6", "ALT,1742-6\nALT,1920-8", "#\nALT,x742-6"}) {
        try {
            ReadLoincTable(table);
            ADD_FAILURE() << table;
        } catch (const std::exception& error) {
            EXPECT_EQ(std::string(error.what()).rfind("line 2: ", 0), 0U) << error.what();
        }
    }
}

}  // namespace
}  // namespace ZELPC
