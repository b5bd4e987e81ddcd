#include <gtest/gtest.h>

#include "hl7/message/Messages.h"

namespace {

using namespace HL7v251::Message;

TEST(Encode, CompositeKeepsInnerAndDropsTrailingSeparators) {
    CE coded;
    EXPECT_EQ(coded.Encode(), "");
    coded.Component<3>().SetValue("c");
    EXPECT_EQ(coded.Encode(), "^^c");
    coded.Component<1>().SetValue("a");
    coded.Component<3>().SetValue("");
    EXPECT_EQ(coded.Encode(), "a");
    // A separator that a value brings to the end goes too.
    coded.Component<1>().SetValue("a^^");
    EXPECT_EQ(coded.Encode(), "a");
    coded.Component<1>().SetValue("a^b&");
    EXPECT_EQ(coded.Encode(), "a^b&");
}

TEST(Encode, CompositeInsideCompositeUsesSubcomponentSeparator) {
    XCN person;
    person.Component<2>().Component<1>().SetValue("family");
    person.Component<2>().Component<3>().SetValue("own");
    EXPECT_EQ(person.Encode(), "^family&&own");
    // The innermost of three levels has no separator of its own left.
    person.Component<17>().Component<2>().Component<1>().SetValue("from");
    person.Component<17>().Component<2>().Component<2>().SetValue("day");
    EXPECT_EQ(person.Encode(), "^family&&own^^^^^^^^^^^^^^^&from&day");
}

TEST(Encode, SegmentNeverShrinksBelowItsNameAndOneSeparator) {
    NTE note;
    EXPECT_EQ(note.Encode(), "NTE|\r");
    note.Field<2>().SetValue("");
    EXPECT_EQ(note.Encode(), "NTE|\r");
    note.Field<3>().SetValue("|||");
    EXPECT_EQ(note.Encode(), "NTE|\r");
    note.Field<3>().SetValue("a|b");
    EXPECT_EQ(note.Encode(), "NTE|||a|b\r");
}

// The writer passes its text on in portions; where these end must not show.
TEST(Encode, LongTextsAreWholeWhereverAPortionEnds) {
    for (std::size_t length = 8050; length < 8250; ++length) {
        SCOPED_TRACE("length " + std::to_string(length));
        const std::string value(length, 'x');
        SAC container;
        container.Field<1>().Component<1>().SetValue(value);
        container.Field<40>().Component<2>().SetValue("twelve chars");
        container.Field<44>().Component<1>().SetValue("abc");
        ASSERT_EQ(container.Encode(), "SAC|" + value + std::string(39, '|') + "^twelve chars||||abc\r");
    }
    NTE note;
    note.Field<2>().SetValue("P");
    note.Field<3>().SetValue(std::string(20000, '|'));
    EXPECT_EQ(note.Encode(), "NTE||P\r");
    note.Field<3>().SetValue(std::string(20000, 'y'));
    std::string out = "before";
    note.EncodeTo(out);
    EXPECT_EQ(out, "beforeNTE||P|" + std::string(20000, 'y') + "\r");
}

}  // namespace
