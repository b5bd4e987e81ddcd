#include <gtest/gtest.h>

#include "benchmarks/CountedHeap.h"
#include "benchmarks/ThirtyAnalytes.h"

namespace {

using namespace HL7v251::Message;

TEST(Memory, EmptyPartsTakeNone) {
    const std::size_t before = CountedHeap::Blocks();
    OBX result;
    CX id;
    G_OUL_R22_SPECIMEN specimen;
    const SAC container;
    EXPECT_EQ(container.Field<44>().Component<1>().GetValue(), "");
    std::string_view text("SAC||||||||\r");
    SAC decoded;
    EXPECT_EQ(decoded.DecodeFrom(text), 1);
    EXPECT_EQ(CountedHeap::Blocks(), before);
}

TEST(Memory, ThirtyAnalytesStayBelow200Kilobytes) {
    const std::size_t before = CountedHeap::Live();
    ZELHL7::COUL_R22Wrap message;
    FillThirtyAnalytes(message);
    EXPECT_LT(CountedHeap::Live() - before, 200U * 1024U);
}

}  // namespace
