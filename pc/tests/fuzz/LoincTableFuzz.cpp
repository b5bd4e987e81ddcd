#include <stdexcept>

#include "deliver/LoincTable.h"
#include "fuzz/Fuzz.h"

using Fuzz::Require;
using namespace ZELPC;

/// A table that a laboratory's own people made.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = Fuzz::Text({data, size});
    try {
        for (const auto& [analyte, code] : ReadLoincTable(text)) {
            Require(!analyte.empty() && text.find(analyte) != text.npos, "an analyte stands in the table");
            Require(code.size() >= 3 && code.size() <= 8 && code[code.size() - 2] == '-', "a code has its form");
        }
    } catch (const std::runtime_error& error) {
        Require(std::string_view(error.what()).starts_with("line "), "an error names the line");
    }
    return 0;
}
