#include <malloc.h>

#include "fuzz/Fuzz.h"
#include "hl7/message/Messages.h"

using namespace HL7v251::Message;
using Fuzz::Require;

extern "C" [[gnu::weak]] std::size_t __sanitizer_get_current_allocated_bytes();

namespace {

/// Bytes on the heap, also where a sanitizer has replaced the allocator.
std::size_t HeapBytes() {
    if (__sanitizer_get_current_allocated_bytes != nullptr) {
        return __sanitizer_get_current_allocated_bytes();
    }
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

/// What a decoded text may take: a small multiple of its length, beside what an empty message takes.
std::size_t MostHeapBytes(std::size_t textSize) {
    return 50 * textSize + 16 * std::size_t{1024};
}

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
    const std::size_t before = HeapBytes();
    std::string written;
    {
        Message message;
        std::string_view rest = text;
        const int result = message.DecodeFrom(rest);
        Require(result == 1 || result == -1, "decoding ends with a result");
        Require(text.ends_with(rest), "what is left is the end of the text");
        Require(HeapBytes() <= before + MostHeapBytes(text.size()), "memory grows by a small factor");
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

/// An HL7 text, read as the message type that the first byte chooses. Texts that do not fit are told line by line on a
/// stream, which is put aside; its descriptor stays for what a sanitizer has to say.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static std::FILE* const nowhere = stderr = std::fopen("/dev/null", "w");
    Require(nowhere != nullptr, "there is a /dev/null");
    Fuzz::Bytes input(data, size);
    kDecoders[Fuzz::TakeByte(input) % std::size(kDecoders)](Fuzz::Text(input));
    return 0;
}
