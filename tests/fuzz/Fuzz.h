#pragma once

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>

/// What every target has: libFuzzer, or CorpusMain.cpp, calls it with one input after the other. Returns 0; -1 for an
/// input that is not worth keeping.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace Fuzz {

using Bytes = std::span<const std::uint8_t>;

/// Ends the program as a crash does when a rule does not hold, so that the input is kept. Writes past stdio: a target
/// may have put the stream aside.
inline void Require(bool holds, const char* rule) {
    if (!holds) {
        dprintf(STDERR_FILENO, "Does not hold: %s\n", rule);
        std::abort();
    }
}

/// Takes the first byte off an input; 0 when there is none. It chooses among a target's cases.
inline std::uint8_t TakeByte(Bytes& input) {
    if (input.empty()) {
        return 0;
    }
    const std::uint8_t byte = input.front();
    input = input.subspan(1);
    return byte;
}

inline std::string_view Text(Bytes input) {
    return {reinterpret_cast<const char*>(input.data()), input.size()};
}

}  // namespace Fuzz
