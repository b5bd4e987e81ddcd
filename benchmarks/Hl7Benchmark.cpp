#include <benchmark/benchmark.h>

#include "ThirtyAnalytes.h"

namespace {

/// The text of a message that is filled already.
void Encode(benchmark::State& state) {
    ZELHL7::COUL_R22Wrap message;
    FillThirtyAnalytes(message);
    for (auto _ : state) {
        std::string text;
        message.GetMessageText(text);
        benchmark::DoNotOptimize(text.data());
    }
}
BENCHMARK(Encode);

/// From plain values to the text.
void FillAndEncode(benchmark::State& state) {
    for (auto _ : state) {
        ZELHL7::COUL_R22Wrap message;
        FillThirtyAnalytes(message);
        std::string text;
        message.GetMessageText(text);
        benchmark::DoNotOptimize(text.data());
    }
}
BENCHMARK(FillAndEncode);

/// From the text to the typed tree, every field in its place.
void Decode(benchmark::State& state) {
    std::string text;
    {
        ZELHL7::COUL_R22Wrap message;
        FillThirtyAnalytes(message);
        message.GetMessageText(text);
    }
    for (auto _ : state) {
        HL7v251::Message::OUL_R22 message;
        std::string_view rest(text);
        if (message.DecodeFrom(rest) != 1 || !rest.empty()) {
            state.SkipWithError("not decoded");
        }
    }
}
BENCHMARK(Decode);

}  // namespace

BENCHMARK_MAIN();
