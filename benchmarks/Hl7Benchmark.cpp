#include <benchmark/benchmark.h>

#include <array>
#include <string>
#include <string_view>

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

std::string ResultText(int analytes) {
    ZELHL7::COUL_R22Wrap message;
    FillResult(message, PlainResult(analytes));
    std::string text;
    message.GetMessageText(text);
    return text;
}

void CountBytes(benchmark::State& state, const std::string& text) {
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

/// The text of a message that is filled already.
void Encode(benchmark::State& state) {
    ZELHL7::COUL_R22Wrap message;
    FillResult(message, PlainResult(Analytes(state)));
    std::string last;
    for (auto _ : state) {
        std::string text;
        message.GetMessageText(text);
        benchmark::DoNotOptimize(text.data());
        last.swap(text);
    }
    CountBytes(state, last);
}
BENCHMARK(Encode)->Apply(ByAnalytes);

/// From plain values, which are there already, to the text.
void FillAndEncode(benchmark::State& state) {
    const PlainResult result(Analytes(state));
    std::string last;
    for (auto _ : state) {
        ZELHL7::COUL_R22Wrap message;
        FillResult(message, result);
        std::string text;
        message.GetMessageText(text);
        benchmark::DoNotOptimize(text.data());
        last.swap(text);
    }
    CountBytes(state, last);
}
BENCHMARK(FillAndEncode)->Apply(ByAnalytes);

/// From the text to the typed tree, every field in its place.
void Decode(benchmark::State& state) {
    const std::string text = ResultText(Analytes(state));
    for (auto _ : state) {
        HL7v251::Message::OUL_R22 message;
        std::string_view rest(text);
        if (message.DecodeFrom(rest) != 1 || !rest.empty()) {
            state.SkipWithError("not decoded");
        }
    }
    CountBytes(state, text);
}
BENCHMARK(Decode)->Apply(ByAnalytes);

/// What decoding cannot do without: each delimiter is found, and nothing else is done.
void FindDelimiters(benchmark::State& state) {
    const std::string text = ResultText(Analytes(state));
    std::array<bool, 256> delimiter{};
    for (const char c : {'|', '^', '&', '\r'}) {
        delimiter[static_cast<unsigned char>(c)] = true;
    }
    for (auto _ : state) {
        std::size_t found = 0;
        for (const char c : text) {
            if (delimiter[static_cast<unsigned char>(c)]) {
                ++found;
                benchmark::DoNotOptimize(found);
            }
        }
    }
    CountBytes(state, text);
}
BENCHMARK(FindDelimiters)->Apply(ByAnalytes);

}  // namespace

BENCHMARK_MAIN();
