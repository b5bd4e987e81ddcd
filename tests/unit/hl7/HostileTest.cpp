#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "unit/hl7/Tree.h"

namespace {

using namespace tree;

// What a new message brings along, and shows again when a text had emptied it.
constexpr std::size_t kPresets = 40;

// Whatever the bytes, decoding ends with a result, leaves a tail of the text, and what was read can be written and read
// again without growing.
template <class Message>
void DecodeAnything(const std::string& text) {
    std::string rest = text;
    Message message;
    const int result = message.Decode(rest);
    ASSERT_TRUE(result == 1 || result == -1);
    ASSERT_TRUE(text.ends_with(rest));
    const std::string written = message.Encode();
    Message again;
    std::string writtenRest = written;
    again.Decode(writtenRest);
    ASSERT_LE(again.Encode().size(), written.size() + kPresets);
}

template <class Message>
class Hostile : public testing::Test {
protected:
    // Texts that do not fit are reported line by line. Only the stream is put aside, not its descriptor, so that a
    // sanitizer is still heard.
    void SetUp() override { stderr = std::fopen("/dev/null", "w"); }
    void TearDown() override {
        std::fclose(stderr);
        stderr = stream_;
    }

    static std::string SomeText(std::uint32_t seed) {
        Message message;
        Filler(seed).Fill(message);
        return message.Encode();
    }

private:
    std::FILE* const stream_ = stderr;
};

using Messages = testing::Types<ACK, OML_O33, ORL_O34, OUL_R22, QBP_Q11, QBP_Q13, RSP_K11, RTB_K13>;
TYPED_TEST_SUITE(Hostile, Messages);

TYPED_TEST(Hostile, TextCutAnywhere) {
    const std::string text = this->SomeText(7);
    for (std::size_t length = 0; length < std::min<std::size_t>(text.size(), 3000); ++length) {
        SCOPED_TRACE("length " + std::to_string(length));
        DecodeAnything<TypeParam>(text.substr(0, length));
    }
}

TYPED_TEST(Hostile, TextWithBytesReplacedAndLinesMoved) {
    std::mt19937 random(11);
    using namespace std::string_view_literals;
    const std::string_view bytes = "\r|^&~\\\0MSHOBXPIDSPMORC"sv;
    for (std::uint32_t seed = 1; seed <= 150; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::string text = this->SomeText(seed);
        for (std::size_t change = 0; change < 1 + text.size() / 60; ++change) {
            text[random() % text.size()] = bytes[random() % bytes.size()];
        }
        const std::size_t cut = text.find('\r', random() % text.size());
        if (cut != std::string::npos) {
            text = text.substr(cut + 1) + text.substr(0, cut + 1);
        }
        DecodeAnything<TypeParam>(text);
    }
}

TYPED_TEST(Hostile, MegabyteOfOneLineTakesNoLongerThanItsLength) {
    const auto start = std::chrono::steady_clock::now();
    const std::string_view lines[] = {"MSH|^~\\&\r", "SPM|\rOBR|\r", "OBX|\r", "SPM\rORC\r", "NTE|1\r", "ERR|\r",
                                      "RDT|\r",      "\r",           "SFT|\r", "|",          "^",       "&"};
    for (const std::string_view line : lines) {
        std::string text = TypeParam().Encode() + "SPM|\rOBR|\rOBX|\r";
        while (text.size() < 1'000'000) {
            text += line;
        }
        DecodeAnything<TypeParam>(text);
    }
    // Far above what linear work takes, also under sanitizers; far below what quadratic work would.
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

}  // namespace
