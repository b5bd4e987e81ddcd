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

    PID patient;
    patient.Field<5>().Component<1>().Component<1>().SetValue("family");
    patient.Field<5>().Component<1>().Component<2>().SetValue("prefix");
    patient.Field<5>().Component<2>().SetValue("given");
    patient.Field<7>().Component<1>().SetValue("20010203");
    EXPECT_EQ(patient.Encode(), "PID|||||family&prefix^given||20010203\r");
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

TEST(Encode, HeaderDoesNotRepeatItsFieldSeparator) {
    MSH header;
    header.Field<1>().SetValue("|");
    EXPECT_EQ(header.Encode(), "MSH|\r");
    header.Field<2>().SetValue("^~\\&");
    header.Field<3>().Component<1>().SetValue("app");
    EXPECT_EQ(header.Encode(), "MSH|^~\\&|app\r");
}

TEST(Encode, ValuesAreWrittenByteForByte) {
    const std::string bytes("\x00\xff~\\\n\xc3\xa9", 7);
    NTE note;
    note.Field<3>().SetValue(bytes);
    EXPECT_EQ(note.Encode(), "NTE|||" + bytes + "\r");
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

TEST(Encode, GroupWritesChildrenInOrderAndSkipsEmptyContainers) {
    G_OUL_R22_RESULT result;
    EXPECT_EQ(result.Encode(), "OBX|\r");
    result.Child<NTE>().Append();
    result.Child<NTE>().Append();
    result.Child<TCD>().Append();
    result.Child<NTE>().GetAt(1)->Field<1>().SetValue("2");
    EXPECT_EQ(result.Encode(), "OBX|\rTCD|\rNTE|\rNTE|2\r");
}

// A child whose text does not end a line gets its terminator from the group, but not from the message.
class Bare : public HL7v251::Base::HL7Object {
public:
    void Write(HL7v251::Base::HL7Writer& out) const override { out.Put(text); }
    int Read(HL7v251::Base::HL7Reader&) override { return HL7v251::Base::kDecoded; }
    std::string text = "bare";
};

TEST(Encode, OnlyAGroupTerminatesItsChildren) {
    HL7v251::Base::GroupOf<"G", Bare, NTE> group;
    EXPECT_EQ(group.Encode(), "bare\rNTE|\r");
    group.Child<Bare>().text.clear();
    EXPECT_EQ(group.Encode(), "NTE|\r");
    EXPECT_EQ((HL7v251::Base::MessageOf<Bare, NTE>().Encode()), "bareNTE|\r");
}

TEST(Occurrences, GetAtOutsideTheRangeIsNull) {
    HL7v251::Base::HL7SegmentOpRe<NTE> notes;
    const auto& read = notes;
    EXPECT_EQ(notes.GetAt(0), nullptr);
    notes.Append();
    EXPECT_EQ(notes.Count(), 1);
    EXPECT_NE(notes.GetAt(0), nullptr);
    EXPECT_EQ(read.GetAt(0), notes.GetAt(0));
    EXPECT_EQ(notes.GetAt(1), nullptr);
    EXPECT_EQ(notes.GetAt(-1), nullptr);
    EXPECT_EQ(read.GetAt(-1), nullptr);
}

TEST(Parts, KeepTheirPlaceWhenOthersAreMade) {
    SAC container;
    auto& first = container.Field<1>().Component<1>();
    first.SetValue("first");
    container.Field<44>().Component<6>().SetValue("last");
    std::string text = "SAC|new||third\r";
    EXPECT_EQ(container.Decode(text), 1);
    EXPECT_EQ(first.GetValue(), "new");
    const SAC& read = container;
    EXPECT_EQ(read.Field<3>().Component<1>().GetValue(), "third");
    EXPECT_EQ(read.Field<44>().Component<6>().GetValue(), "last");
    EXPECT_EQ(read.Field<2>().Component<4>().GetValue(), "");
}

}  // namespace
