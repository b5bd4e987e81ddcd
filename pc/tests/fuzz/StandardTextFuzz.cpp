#include <algorithm>
#include <cstdio>

#include "deliver/Acknowledgement.h"
#include "deliver/Standard.h"
#include "fuzz/Fuzz.h"
#include "hl7/message/Messages.h"

using Fuzz::Require;
using namespace ZELPC;

/// A result as it came from an analyzer, made into what a laboratory's system expects.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // The decoder tells on this stream, line by line, what does not fit; a sanitizer writes past it.
    static std::FILE* const nowhere = stderr = std::fopen("/dev/null", "w");
    Require(nowhere != nullptr, "there is a /dev/null");
    static const DestinationOptions options = [] {
        DestinationOptions made;
        made.names = {"ZELPC", "LAB", "LIS", "HOSPITAL"};
        made.loinc = {{"ALT", "1742-6"}, {"GLU", "2345-7"}};
        return made;
    }();
    const std::string_view text = Fuzz::Text({data, size});
    const StandardText standard = MakeStandard(text, "store-1", options);
    Require(standard.text.empty() != standard.error.empty(), "there is a text or a reason");
    if (standard.text.empty()) {
        return 0;
    }
    Require(ControlIdOf(standard.text) == "store-1", "the message has the number that it was given");
    Require(standard.text.find("|NULL|NULL|") == standard.text.npos || text.find("|NULL|NULL|") != text.npos,
            "nothing is said that was not said");
    HL7v251::Message::OUL_R22 message;
    std::string_view rest = standard.text;
    Require(message.DecodeFrom(rest) == HL7v251::Base::kDecoded && rest.empty(), "what is sent can be read");
    const auto segments = [](std::string_view all) { return std::ranges::count(all, '\r'); };
    Require(segments(standard.text) == segments(text), "no segment is lost");
    return 0;
}
