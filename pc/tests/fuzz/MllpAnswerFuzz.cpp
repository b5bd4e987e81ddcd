#include <algorithm>

#include "deliver/Acknowledgement.h"
#include "deliver/CMllpDecoder.h"
#include "fuzz/Fuzz.h"

using Fuzz::Require;
using namespace ZELPC;

/// What a laboratory's system answers over a connection, cut into reads of any size.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::size_t cut = size == 0 ? 1 : 1 + data[0];
    const std::string_view all = Fuzz::Text({data, size});
    CMllpDecoder decoder;
    std::string frame;
    std::size_t taken = 0;
    for (std::string_view rest = all; !rest.empty();) {
        const std::string_view piece = rest.substr(0, cut);
        rest.remove_prefix(piece.size());
        if (!decoder.Put(piece)) {
            Require(size > CMllpDecoder::kLongest, "only what is too long breaks a stream");
            return 0;
        }
        while (const auto message = decoder.Next()) {
            taken += message->size() + 3;
            Require(message->find("\x1C\r") == message->npos, "a message ends at the first end");
            CMllpDecoder::Frame(*message, frame);
            Require(all.find(frame) != all.npos, "a message came as a frame");
            const auto answer = ReadAcknowledgement(*message);
            Require(!answer || message->starts_with("MSH|"), "an answer begins with a header");
            if (answer && answer->Outcome().verdict == Verdict::kAccepted) {
                Require(message->find(answer->code) != message->npos && answer->Outcome().reason.empty(),
                        "what is accepted was said so");
            }
        }
    }
    Require(taken <= size, "no more is taken than came");
    Require(decoder.Empty() || all.find('\x0B') != all.npos, "noise is not kept");
    // The number that an answer is compared with is looked for in anything that an analyzer sends.
    Require(ControlIdOf(all).size() <= size, "a number is part of its text");
    return 0;
}
