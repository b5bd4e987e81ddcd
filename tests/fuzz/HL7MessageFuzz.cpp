#include "fuzz/HL7Text.h"
#include "hl7/message/Messages.h"

using namespace HL7v251::Message;
using Fuzz::Require;

namespace {

/// What a new message brings along, and shows again when a text had emptied it.
constexpr std::size_t kPresets = 40;

template <class Message>
std::string Again(const std::string& text) {
    Message message;
    std::string_view rest(text);
    message.DecodeFrom(rest);
    return message.Encode();
}

template <class Message>
void Decode(std::string_view text) {
    const std::size_t before = Fuzz::HeapBytes();
    std::string written;
    {
        Message message;
        std::string_view rest = text;
        const int result = message.DecodeFrom(rest);
        Require(result == 1 || result == -1, "decoding ends with a result");
        Require(text.ends_with(rest), "what is left is the end of the text");
        Require(Fuzz::HeapBytes() <= before + Fuzz::MostHeapBytes(text.size()), "memory grows by a small factor");
        written = message.Encode();
    }
    // Segments that must be there are written also when the text had none.
    Require(written.size() <= 8 * text.size() + 256, "a text grows by a small factor at most");
    const std::string again = Again<Message>(written);
    Require(again.size() <= written.size() + kPresets, "a text that was written does not grow");
    Require(Again<Message>(again) == again, "what was read and written twice stays as it is");
}

constexpr void (*kDecoders[])(std::string_view) = {&Decode<ACK>,     &Decode<OML_O33>, &Decode<ORL_O34>,
                                                   &Decode<OUL_R22>, &Decode<QBP_Q11>, &Decode<QBP_Q13>,
                                                   &Decode<RSP_K11>, &Decode<RTB_K13>};

}  // namespace

/// An HL7 text, read as the message type that the first byte chooses.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return Fuzz::DecodeChosen(kDecoders, data, size);
}
