#include <gtest/gtest.h>

#include <memory>

#include "unit/hl7/Tree.h"

namespace {

using namespace tree;

// A value that lands at another position, or is lost on the way, shows in the values even when the texts agree.
template <class Element>
void CheckSurvives(Element& made, Element& read) {
    const std::string text = made.Encode();
    std::string rest = text;
    ASSERT_EQ(read.Decode(rest), 1);
    ASSERT_EQ(rest, "");
    ASSERT_EQ(read.Encode(), text);
    Values madeValues;
    Values readValues;
    Collect(made, madeValues);
    Collect(read, readValues);
    ASSERT_GT(madeValues.size(), 0U);
    ASSERT_EQ(readValues, madeValues);
}

template <class Element>
class RandomTree : public testing::Test {};

using Elements = testing::Types<ACK, OML_O33, ORL_O34, OUL_R22, QBP_Q11, QBP_Q13, RSP_K11, RTB_K13, G_OUL_R22_VISIT,
                                G_OUL_R22_TIMING_QTY>;
TYPED_TEST_SUITE(RandomTree, Elements);

TYPED_TEST(RandomTree, SurvivesEncodingAndDecoding) {
    for (std::uint32_t seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        TypeParam made;
        TypeParam read;
        Filler(seed).Fill(made);
        CheckSurvives(made, read);
    }
}

template <class Segment>
std::unique_ptr<base::HL7Segment> New() {
    return std::make_unique<Segment>();
}

TEST(RandomSegment, OutsideTheMessagesSurvivesToo) {
    for (const auto make :
         {New<AL1>, New<BLG>, New<CTI>, New<DG1>, New<FT1>, New<GT1>, New<IN1>, New<IN2>, New<IN3>, New<PD1>}) {
        for (std::uint32_t seed = 1; seed <= 60; ++seed) {
            const auto made = make();
            const auto read = make();
            SCOPED_TRACE(std::string(made->Name()) + " seed " + std::to_string(seed));
            Filler(seed).Fill(*made);
            CheckSurvives(*made, *read);
        }
    }
}

}  // namespace
