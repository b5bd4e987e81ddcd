#include <gtest/gtest.h>

#include "unit/hl7/Tree.h"

namespace {

using namespace tree;

template <class Element>
class RandomTree : public testing::Test {};

using Elements = testing::Types<ACK, OML_O33, ORL_O34, OUL_R22, QBP_Q11, QBP_Q13, RSP_K11, RTB_K13, G_OUL_R22_VISIT,
                                G_OUL_R22_TIMING_QTY, AL1, BLG, CTI, DG1, FT1, GT1, IN1, IN2, IN3, PD1>;
TYPED_TEST_SUITE(RandomTree, Elements);

// A value that lands at another position, or is lost on the way, shows in the values even when the texts agree.
TYPED_TEST(RandomTree, SurvivesEncodingAndDecoding) {
    for (std::uint32_t seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        TypeParam made;
        Filler(seed).Fill(made);
        const std::string text = made.Encode();
        std::string rest = text;
        TypeParam read;
        ASSERT_EQ(read.Decode(rest), 1);
        ASSERT_EQ(rest, "");
        ASSERT_EQ(read.Encode(), text);
        Values madeValues;
        Values readValues;
        Collect(made, madeValues);
        Collect(read, readValues);
        ASSERT_EQ(readValues, madeValues);
    }
}

}  // namespace
