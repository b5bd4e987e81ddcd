#include <benchmark/benchmark.h>

#include "ThirtyAnalytes.h"

namespace {

/// The argument of each benchmark is the number of analytes: 30 is what the peers are measured with, all of them
/// together show how the time grows.
void ByAnalytes(benchmark::internal::Benchmark* benchmark) {
    for (const int count : {1, 10, 30, 100, 300, 1000, 2000}) {
        benchmark->Arg(count);
    }
}

int Analytes(const benchmark::State& state) {
    return static_cast<int>(state.range(0));
}

/// The text of a message that is filled already.
void Encode(benchmark::State& state) {
    ZELHL7::COUL_R22Wrap message;
    FillAnalytes(message, Analytes(state));
    for (auto _ : state) {
        std::string text;
        message.GetMessageText(text);
        benchmark::DoNotOptimize(text.data());
    }
}
BENCHMARK(Encode)->Apply(ByAnalytes);

/// From plain values to the text.
void FillAndEncode(benchmark::State& state) {
    for (auto _ : state) {
        ZELHL7::COUL_R22Wrap message;
        FillAnalytes(message, Analytes(state));
        std::string text;
        message.GetMessageText(text);
        benchmark::DoNotOptimize(text.data());
    }
}
BENCHMARK(FillAndEncode)->Apply(ByAnalytes);

/// From the text to the typed tree, every field in its place.
void Decode(benchmark::State& state) {
    std::string text;
    {
        ZELHL7::COUL_R22Wrap message;
        FillAnalytes(message, Analytes(state));
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
BENCHMARK(Decode)->Apply(ByAnalytes);

}  // namespace

BENCHMARK_MAIN();
