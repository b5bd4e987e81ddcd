#include <algorithm>
#include <cstdio>

#include "fuzz/Fuzz.h"
#include "result/LabResult.h"
#include "result/MessageText.h"

using Fuzz::Require;
using namespace ZELPC;

namespace {

bool IsPlain(const std::string& text) {
    return std::ranges::none_of(text, [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7F'; });
}

}  // namespace

/// A result as an analyzer may send it, read for people.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // The decoder tells on this stream, line by line, what does not fit; a sanitizer writes past it.
    static std::FILE* const nowhere = stderr = std::fopen("/dev/null", "w");
    Require(nowhere != nullptr, "there is a /dev/null");
    const std::string_view text = Fuzz::Text({data, size});
    const auto result = ReadLabResult(text);
    Require(!result || HoldsResult(text), "what is read as a result holds one");
    const auto summary = ReadLabSummary(text);
    Require(summary.has_value() == result.has_value(), "a summary is read of what is read");
    if (result) {
        Require(summary->control == result->control && summary->patient == result->patient &&
                    summary->panel == result->panel && summary->measured == result->Measured(),
                "a summary says the same");
        Require(IsPlain(result->patient + result->panel + result->built), "a result is plain text");
        for (const LabValue& value : result->values) {
            Require(IsPlain(value.analyte + value.value + value.range + value.dynamicRange), "a value is plain text");
        }
    }
    const std::string same = WithoutBuildTime(text);
    Require(same.size() <= size && WithoutBuildTime(same) == same, "a time is taken out once");
    for (const MessageField& field : ListMessage(text)) {
        Require(!field.value.empty() && field.place.find('-') != std::string::npos, "a field has a place and a value");
    }
    return 0;
}
