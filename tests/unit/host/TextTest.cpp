#include "platform/Text.h"

#include <gtest/gtest.h>

using QENFx::Common::Version;

namespace {

// Faults: fields compared as text or from the wrong end, a broken text that gets a version above the installed one.
TEST(VersionTest, ComparesFieldsAndReadsAnythingElseAsNone) {
    EXPECT_STREQ(Version("1.2.3.4").getVersion(), "1.02.03.0004");
    EXPECT_STREQ(Version("0001.10.100.123456789").getVersion(), "1.10.100.123456789");
    EXPECT_LT(Version("1.9.0.0"), Version("1.10.0.0"));
    EXPECT_LT(Version("1.9.9.9999"), Version("2.0.0.0"));
    EXPECT_LE(Version("1.02.03.0004"), Version("1.2.3.4"));
    for (const char* text : {"", "1.2.3", "1.2.3.4.5", "1.2.3.", ".1.2.3", "1..2.3", "1.2.3.-4", "+1.2.3.4", " 1.2.3.4",
                             "1.2.3.4 ", "1.2.3.4'", "1.2.3.1234567890", "a.b.c.d", "1,2,3,4"}) {
        EXPECT_EQ(Version(text), Version()) << text;
    }
    EXPECT_STREQ(Version().getVersion(), "0.00.00.0000");
}

}  // namespace
