#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "hl7/message/Messages.h"

namespace {

using namespace HL7v251::Message;
using HL7v251::Base::HL7DataType;

// No field of the catalogue can be malformed; this one always is.
class Broken : public HL7DataType {
public:
    int Read(HL7v251::Base::HL7Reader&) override { return HL7v251::Base::kMalformed; }
};

class BrokenComposite : public HL7v251::Base::CompositeOf<ST, Broken> {};
class ZBR : public HL7v251::Base::SegmentOf<"ZBR", ST, BrokenComposite, Broken> {};
class G_BROKEN : public HL7v251::Base::GroupOf<"G_BROKEN", NTE, ZBR> {};

struct Outcome {
    int result;
    std::string rest;
    std::string errors;
    friend bool operator==(const Outcome&, const Outcome&) = default;
};

void PrintTo(const Outcome& outcome, std::ostream* out) {
    *out << outcome.result << " rest " << testing::PrintToString(outcome.rest) << " errors "
         << testing::PrintToString(outcome.errors);
}

template <class Element>
Outcome Decode(Element& element, std::string text) {
    testing::internal::CaptureStderr();
    const int result = element.Decode(text);
    return {result, text, testing::internal::GetCapturedStderr()};
}

template <class Element>
Outcome DecodeNew(std::string text) {
    Element element;
    return Decode(element, std::move(text));
}

// Pieces are cut eight characters at a time; the plain way must give the same, whatever the bytes around a separator.
TEST(Pieces, AreCutAtEverySeparator) {
    std::mt19937 random(5);
    const std::string_view bytes("|}{\xfc\x7f\x80\0\x01", 8);
    for (int round = 0; round < 5000; ++round) {
        std::string text(random() % 40, ' ');
        for (char& c : text) {
            c = bytes[random() % bytes.size()];
        }
        const std::size_t limit = 1 + random() % 12;
        std::vector<std::string> expected;
        std::size_t start = 0;
        for (; start < text.size() && expected.size() < limit; start += expected.back().size() + 1) {
            expected.push_back(text.substr(start, text.find('|', start) - start));
        }
        const HL7v251::Base::HL7Pieces pieces(text, '|', limit);
        std::vector<std::string> cut(pieces.Count());
        for (const auto& piece : pieces.Filled()) {
            cut.at(piece.index) = pieces.Text(piece);
        }
        ASSERT_EQ(cut, expected) << testing::PrintToString(text);
        ASSERT_EQ(pieces.Consumed(), std::min(start, text.size()));
    }
}

// Faults: a value that was read and is set again written over its neighbours in the line, or lost when it grows.
TEST(Decode, ValuesThatWereReadCanBeReplaced) {
    NTE note;
    std::string line = "NTE|1|L|text|code^more\r";
    EXPECT_EQ(note.Decode(line), 1);
    auto& text = note.Field<3>();
    std::string value;
    for (int length = 0; length < 100; ++length) {
        text.SetValue(value);
        ASSERT_EQ(note.Encode(), "NTE|1|L|" + value + "|code^more\r");
        value += static_cast<char>('a' + length % 26);
    }
    text.SetValue(text.GetValue().substr(1));
    text.SetValue(text.GetValue().substr(90, 5));
    EXPECT_EQ(note.Encode(), "NTE|1|L|nopqr|code^more\r");
    line = "NTE|2||longer than before";
    EXPECT_EQ(note.Decode(line), 1);
    EXPECT_EQ(note.Encode(), "NTE|2||longer than before|code^more\r");
}

TEST(Decode, CompositeKeepsComponentsBeyondThePieces) {
    CX id;
    id.Component<3>().SetValue("kept");
    EXPECT_EQ(Decode(id, "a^"), (Outcome{1, "", ""}));
    EXPECT_EQ(id.Encode(), "a^^kept");
    // An empty piece in between empties its component; the end of the text does not.
    id.Component<2>().SetValue("gone");
    EXPECT_EQ(Decode(id, "b^^c^n&u&t"), (Outcome{1, "", ""}));
    EXPECT_EQ(id.Encode(), "b^^c^n&u&t");
    EXPECT_EQ(id.Component<4>().Component<2>().GetValue(), "u");
    // What lies beyond the components stays in the text.
    CQ quantity;
    EXPECT_EQ(Decode(quantity, "1^unit^more"), (Outcome{1, "more", ""}));
    EXPECT_EQ(quantity.Encode(), "1^unit");
}

TEST(Decode, SegmentTakesOneLineThatBeginsWithItsName) {
    NTE note;
    EXPECT_EQ(Decode(note, ""), (Outcome{0, "", ""}));
    EXPECT_EQ(Decode(note, "NT"), (Outcome{0, "NT", ""}));
    EXPECT_EQ(Decode(note, "PV1|a\rNTE|b\r"), (Outcome{0, "PV1|a\rNTE|b\r", ""}));
    EXPECT_EQ(Decode(note, "NTE\rPID|"), (Outcome{1, "PID|", ""}));
    EXPECT_EQ(Decode(note, "NTE"), (Outcome{1, "", ""}));
    EXPECT_EQ(note.Encode(), "NTE|\r");
    // The fourth character goes unread; the terminator may be missing; fields beyond the last are dropped.
    EXPECT_EQ(Decode(note, "NTEx1|L|text|c^d|more|"), (Outcome{1, "", ""}));
    EXPECT_EQ(note.Encode(), "NTE|1|L|text|c^d\r");
    // Fields beyond the supplied ones keep their values, also the one behind a last separator.
    EXPECT_EQ(Decode(note, "NTE||P|\r\r"), (Outcome{1, "\r", ""}));
    EXPECT_EQ(note.Encode(), "NTE||P|text|c^d\r");
}

TEST(Decode, MalformedFieldIsNamedByItsPosition) {
    EXPECT_EQ(DecodeNew<ZBR>("ZBR|a|b\rNTE|"), (Outcome{1, "NTE|", ""}));
    EXPECT_EQ(DecodeNew<ZBR>("ZBR|a|b^c|\rNTE|"),
              (Outcome{-1, "NTE|", "ZBR Segment's 2th field has a parsing error\n"}));
    EXPECT_EQ(DecodeNew<ZBR>("ZBR|||c"), (Outcome{-1, "", "ZBR Segment's 3th field has a parsing error\n"}));
    // A header goes on without its separator field.
    using Header = HL7v251::Base::SegmentOf<"MSH", Broken, ST, ST>;
    Header header;
    EXPECT_EQ(Decode(header, "MSH|^~\\&|app\r"), (Outcome{1, "", "The FieldSeparator parsing error\n"}));
    EXPECT_EQ(header.Field<3>().GetValue(), "app");
}

TEST(Decode, OptionalIsFineWithoutItsElement) {
    using Optional = HL7v251::Base::HL7SegmentOp<PID>;
    EXPECT_EQ(DecodeNew<Optional>(""), (Outcome{1, "", ""}));
    Optional patient;
    EXPECT_EQ(Decode(patient, "PV1|1\r"), (Outcome{1, "PV1|1\r", ""}));
    EXPECT_EQ(patient.Count(), 0);
    EXPECT_EQ(Decode(patient, "PID|1\rPID|2\r"), (Outcome{1, "PID|2\r", ""}));
    EXPECT_EQ(patient.Count(), 1);

    HL7v251::Base::HL7SegmentOp<ZBR> broken;
    EXPECT_EQ(Decode(broken, "ZBR|||c\r"), (Outcome{-1, "",
                                                    "ZBR Segment's 3th field has a parsing error\n"
                                                    "ZBR Segment/SegGroup has a parsing error\n"}));
    EXPECT_EQ(broken.Count(), 0);
}

TEST(Decode, RequiredRepetitionNeedsItsFirstAndForgivesTheRest) {
    using Required = HL7v251::Base::HL7SegmentRe<ZBR>;
    EXPECT_EQ(DecodeNew<Required>(""), (Outcome{0, "", "ZBR Segment/SegGroup has a parsing error\n"}));
    EXPECT_EQ(DecodeNew<Required>("NTE|"), (Outcome{0, "NTE|", "ZBR Segment/SegGroup has a parsing error\n"}));
    EXPECT_EQ(DecodeNew<Required>("ZBR|||c\rZBR|"), (Outcome{-1, "ZBR|",
                                                             "ZBR Segment's 3th field has a parsing error\n"
                                                             "ZBR Segment/SegGroup has a parsing error\n"}));
    Required segments;
    EXPECT_EQ(Decode(segments, "ZBR|1\rZBR|2\rZBR|||c\rZBR|4\r"),
              (Outcome{1, "ZBR|4\r", "ZBR Segment's 3th field has a parsing error\n"}));
    EXPECT_EQ(segments.Encode(), "ZBR|1\rZBR|2\r");
}

TEST(Decode, OptionalRepetitionFailsOnAMalformedElement) {
    using Repeating = HL7v251::Base::HL7SegmentOpRe<ZBR>;
    EXPECT_EQ(DecodeNew<Repeating>(""), (Outcome{1, "", ""}));
    EXPECT_EQ(DecodeNew<Repeating>("NTE|"), (Outcome{1, "NTE|", ""}));
    Repeating segments;
    EXPECT_EQ(Decode(segments, "ZBR|1\rZBR|2\r"), (Outcome{1, "", ""}));
    EXPECT_EQ(Decode(segments, "ZBR|3\rZBR|||c\rZBR|4\r"), (Outcome{-1, "ZBR|4\r",
                                                                    "ZBR Segment's 3th field has a parsing error\n"
                                                                    "ZBR Segment/SegGroup has a parsing error\n"}));
    EXPECT_EQ(segments.Encode(), "ZBR|1\rZBR|2\rZBR|3\r");
}

TEST(Decode, GroupIsThereOnlyWhenEveryChildIs) {
    EXPECT_EQ(DecodeNew<G_BROKEN>("NTE|1\rZBR|\rrest"), (Outcome{1, "rest", ""}));
    EXPECT_EQ(DecodeNew<G_BROKEN>("ZBR|\r"), (Outcome{0, "ZBR|\r", ""}));
    // Nothing is consumed of a group that is not whole.
    EXPECT_EQ(DecodeNew<G_BROKEN>("NTE|1\rrest"), (Outcome{0, "NTE|1\rrest", ""}));
    EXPECT_EQ(DecodeNew<HL7SegmentRe<G_BROKEN>>("NTE|1\rrest"),
              (Outcome{0, "NTE|1\rrest", "G_BROKEN Segment/SegGroup has a parsing error\n"}));
    EXPECT_EQ(DecodeNew<G_OUL_R22_SPECIMEN>("SPM|1\rOBX|1\r"),
              (Outcome{0, "SPM|1\rOBX|1\r", "G_OUL_R22_ORDER Segment/SegGroup has a parsing error\n"}));
}

TEST(Decode, MessageForgivesAMissingPartButNotAMalformedOne) {
    EXPECT_EQ(DecodeNew<OUL_R22>("MSH|^~\\&\rPID|1\r"),
              (Outcome{1, "", "G_OUL_R22_SPECIMEN Segment/SegGroup has a parsing error\n"}));
    ACK answer;
    EXPECT_EQ(Decode(answer, "MSA|AA|7\r"), (Outcome{1, "", ""}));
    EXPECT_EQ(answer.Child<MSA>().Field<2>().GetValue(), "7");

    HL7v251::Base::MessageOf<NTE, HL7SegmentOp<ZBR>, SFT> message;
    EXPECT_EQ(Decode(message, "ZBR|||c\rSFT|1\r").result, -1);
    EXPECT_EQ(message.Encode(), "NTE|\rSFT|\r");
}

}  // namespace
