#include "result/LabResult.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "result/MessageText.h"

using namespace ZELPC;

namespace {

const std::string kAnimal =
    "MSH|^~\\&|ORVELA|LAB|NULL|NULL|20261121103637||OUL^R22^OUL_R22|0|P|2.5.1|||ER|AL||UNICODE UTF-8|||LAB-29^IHE\r"
    "PID|||Rex||^^^^^^L||20191130|M|||||||||||||Doe||||||||||||||CANINE^CANINE^ORVELA^^Dog\r"
    "SPM|1|||PLA|||||||P\r"
    "SAC||||||||||||||||||||||||||||||||0||1||2|||||||3.2^ReagentVersion^ORVELA\r"
    "INV|\r"
    "OBR||NULL||D0816^Renal 2^ORVELA||||||||||||NULL\r"
    "ORC|SC|NULL|||||||NULL\r"
    "OBX|1||^^LN|BUN|17.5|mg/dL|7.5-27.5||||F||3,2,1,EMPTY,EMPTY,EMPTY,EMPTY,7Y,2.5,900.5|||vet||^Kelvora~^Kelvora|"
    "20230601080001\r"
    "SID||L2310\r"
    "OBX|2||^^LN|CREA|1.125|mg/dL|0-0||||F||0,0,0,EMPTY,EMPTY,EMPTY,EMPTY,EMPTY|||vet||^Kelvora~^Kelvora|\r";

const std::string kControl =
    "MSH|^~\\&|ORVELA|LAB|NULL|NULL|20261121103637||OUL^R22^OUL_R22|0|P|2.5.1|||ER|AL||UNICODE UTF-8|||LAB-29^IHE\r"
    "PID|||QC-1||^^^^^^L\r"
    "SPM|1|||BLD|||||||Q\r"
    "SAC|||||||||||||||||||||||||||||||||||||||||||3.1^ReagentVersion^ORVELA\r"
    "INV|^Orvela Control^^^Level 1|||||||||||2024-12-31||||QL77\r"
    "OBR||NULL||D0817^Control^ORVELA||||||||||||NULL\r"
    "ORC|SC|NULL|||||||NULL\r"
    "OBX|1||^^LN|ALT|41.5||38.250000-42.750000||||F||0,0,0,1-2s,0,35.5,45.5,EMPTY,2.5,900.5|||miller||^Kelvora~^"
    "Kelvora|"
    "20230517073000\r"
    "SID||L2311\r";

}  // namespace

// Faults: a field from another place, the analyzer's words for nothing shown as values, a control read as a patient.
TEST(LabResult, SaysWhatTheAnalyzerSaid) {
    const auto animal = ReadLabResult(kAnimal);
    ASSERT_TRUE(animal);
    EXPECT_FALSE(animal->control);
    EXPECT_EQ(animal->patient + animal->birth + animal->sex + animal->client, "Rex20191130MDoe");
    EXPECT_EQ(animal->species + animal->speciesName + animal->age, "CANINEDog7Y");
    EXPECT_EQ(animal->hemolysis + animal->lipemia + animal->icterus + animal->reagentVersion, "0123.2");
    EXPECT_EQ(animal->panelSerial + animal->panel + animal->lot + animal->specimen, "D0816Renal 2L2310PLA");
    EXPECT_EQ(animal->built + animal->Measured(), "2026112110363720230601080001");
    ASSERT_EQ(animal->values.size(), 2U);
    const LabValue& value = animal->values[0];
    EXPECT_EQ(value.analyte + value.value + value.unit + value.range + value.operatorID, "BUN17.5mg/dL7.5-27.5vet");
    EXPECT_EQ(value.errorCode + value.errorLevel + value.qcFlag + value.dynamicRange, "3212.5-900.5");
    EXPECT_EQ(animal->values[1].range, "") << "ranges are switched off";

    const auto control = ReadLabResult(kControl);
    ASSERT_TRUE(control);
    EXPECT_TRUE(control->control);
    EXPECT_EQ(control->materialName + control->materialLevel + control->materialLot + control->materialExpiry,
              "Orvela ControlLevel 1QL772024-12-31");
    EXPECT_EQ(control->values[0].rule + control->values[0].limits, "1-2s35.5-45.5");
}

// Faults: what holds no result taken for one and acknowledged; a repeated result not recognised; a value of the
// database that moves the cursor.
TEST(LabResult, TellsResultsFromOthers) {
    const std::string header = kAnimal.substr(0, kAnimal.find('\r') + 1);
    for (const std::string& text : {std::string(), header, std::string("MSH|"), std::string("garbage\rmore\r")}) {
        EXPECT_FALSE(HoldsResult(text) || ReadLabResult(text)) << text;
    }
    EXPECT_TRUE(HoldsResult(kAnimal));
    std::string again = kAnimal;
    again.replace(again.find("20261121103637"), 14, "20261121110000");
    EXPECT_EQ(WithoutBuildTime(again), WithoutBuildTime(kAnimal));
    again.replace(again.find("17.5"), 4, "17.6");
    EXPECT_NE(WithoutBuildTime(again), WithoutBuildTime(kAnimal));
    EXPECT_EQ(WithoutBuildTime("MSH|^~"), "MSH|^~");

    again.replace(again.find("Rex"), 3, "R\x1Bx");
    EXPECT_EQ(ReadLabResult(again)->patient, "R?x");
}

// Faults: MSH counted from the wrong field, empty fields listed.
TEST(MessageText, ListsFields) {
    const auto fields = ListMessage("MSH|^~\\&|ORVELA||X\rPID|||Rex|\n");
    std::string text;
    for (const MessageField& field : fields) {
        text += field.place + "=" + field.value + " ";
    }
    EXPECT_EQ(text, "MSH-2=^~\\& MSH-3=ORVELA MSH-5=X PID-3=Rex ");
    EXPECT_EQ(fields[3].name, "patient or control");
}
