#include <gtest/gtest.h>

#include "hl7/message/Messages.h"

namespace {

using namespace HL7v251::Message;

TEST(Catalogue, NewMessagesCarryTheirPresets) {
    EXPECT_EQ(ACK().Encode(), "MSH|^~\\&||||||||||2.5.1\rMSA|\r");
    EXPECT_EQ(OML_O33().Encode(), "MSH|^~\\&|||||||OML^O33^OML_O33||P|2.5.1\r");
    EXPECT_EQ(ORL_O34().Encode(), "MSH|^~\\&|||||||ORL^O34^ORL_O34||P|2.5.1\rMSA|\r");
    EXPECT_EQ(OUL_R22().Encode(), "MSH|^~\\&|||||||OUL^R22^OUL_R22||P|2.5.1\r");
    EXPECT_EQ(QBP_Q11().Encode(), "MSH|^~\\&|||||||QBP^Q11^QBP_Q11||P|2.5.1\rQPD|\rRCP|\r");
    EXPECT_EQ(QBP_Q13().Encode(), "MSH|^~\\&|||||||QBP^Q13^QBP_Q13||P|2.5.1\rQPD|\rRCP|\r");
    EXPECT_EQ(RSP_K11().Encode(), "MSH|^~\\&|||||||RSP^K11^RSP_K11||P|2.5.1\rMSA|\rQAK|\rQPD|\r");
    EXPECT_EQ(RTB_K13().Encode(), "MSH|^~\\&|||||||RTB^K13^RTB_K13||P|2.5.1\rMSA|\rQAK|\rQPD|\r");
    EXPECT_EQ(ACK().Child<MSH>().Field<1>().GetValue(), "|");
}

// A field lost or doubled in a long list shifts everything behind it: the last field's type and a landmark far into the
// list would no longer be where they belong.
template <class Expected, class T>
void ExpectType(const T&) {
    EXPECT_TRUE((std::same_as<Expected, T>));
}

TEST(Catalogue, LandmarksStandAtTheirPositions) {
    ExpectType<XCN>(PV1().Field<52>());
    ExpectType<CM_DLD>(PV1().Field<37>());
    ExpectType<FC>(PV1().Field<20>());
    ExpectType<CE>(PID().Field<38>());
    ExpectType<HD>(PID().Field<34>());
    ExpectType<DLN>(PID().Field<20>());
    ExpectType<CM_NDL>(OBR().Field<35>());
    ExpectType<TQ>(OBR().Field<27>());
    ExpectType<EI>(OBX().Field<18>());
    ExpectType<varies>(OBX().Field<5>());
    ExpectType<CWE>(ORC().Field<25>());
    ExpectType<SN>(SAC().Field<31>());
    ExpectType<NM>(SAC().Field<38>());
    ExpectType<DR>(SPM().Field<17>());
    ExpectType<TQ>(INV().Field<14>());
    ExpectType<EI>(MSH().Field<21>());
    ExpectType<FC>(GT1().Field<54>());
    ExpectType<JCC>(IN2().Field<47>());
    ExpectType<CM_AUI>(IN1().Field<14>());
    ExpectType<CM_PCF>(IN3().Field<20>());
    ExpectType<DR>(XCN().Component<17>());
    ExpectType<CM_OSD>(TQ().Component<10>());
    ExpectType<GTS>(RPT().Component<11>());
    EXPECT_EQ(PV1::kFields + PID::kFields + OBR::kFields + SAC::kFields + SPM::kFields + ORC::kFields + OBX::kFields,
              254U);
    EXPECT_EQ(GT1::kFields + IN1::kFields + IN2::kFields + IN3::kFields + PV2::kFields + FT1::kFields + DG1::kFields,
              293U);
}

}  // namespace
