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

// The lines that cost most for their length: many small groups, many small segments, many values of one character.
TEST(Memory, HostileTextGrowsByASmallFactor) {
    std::string values = "SAC";
    for (int field = 0; field < 44; ++field) {
        values += "|1";
    }
    const std::string lines[] = {"OBX\r",          "OBX|1\r",
                                 "SID|1\r",        "NTE|\r",
                                 "SPM\rOBR\r",     "SPM||1\rOBR||1\r",
                                 values + "\r",    "SAC|1|1|1|1|1\r",
                                 "SAC||||||1&1\r", "OBX|^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^\r"};
    for (const std::string& line : lines) {
        SCOPED_TRACE(line);
        std::string text = "MSH|^~\\&\rSPM\r";
        // Results and their parts come behind an order, containers and specimens before it.
        if (!line.starts_with("SAC") && !line.starts_with("SPM")) {
            text += "OBR\rOBX\r";
        }
        while (text.size() < 300'000) {
            text += line;
        }
        testing::internal::CaptureStderr();
        const std::size_t before = CountedHeap::Live();
        CountedHeap::RestartPeak();
        std::size_t used = 0;
        {
            OUL_R22 message;
            std::string_view rest(text);
            EXPECT_EQ(message.DecodeFrom(rest), 1);
            used = CountedHeap::Peak() - before;
        }
        testing::internal::GetCapturedStderr();
        EXPECT_GT(used, 0U);
        EXPECT_LT(used, 50 * text.size());
    }
}

}  // namespace
