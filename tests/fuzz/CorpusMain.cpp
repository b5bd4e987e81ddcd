#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/Fuzz.h"

namespace {

/// How many cut and how many damaged forms of each file are tried besides the file itself.
constexpr std::size_t kForms = 48;

// In memory of exactly its size, so that a sanitizer sees a read behind its end.
void Run(std::span<const std::uint8_t> bytes) {
    const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(input.data(), input.size());
}

/// The file as it is, cut at places all along it, and with single bits flipped all along it.
void RunFile(std::vector<std::uint8_t> bytes) {
    Run(bytes);
    const std::size_t forms = std::min(kForms, bytes.size());
    for (std::size_t form = 0; form < forms; ++form) {
        const std::size_t place = form * bytes.size() / forms;
        Run(std::span(bytes).first(place));
        const auto bit = static_cast<std::uint8_t>(1U << (form % 8));
        bytes[place] ^= bit;
        Run(bytes);
        bytes[place] ^= bit;
    }
}

}  // namespace

/// Runs a target over every file of its kept corpus, named by the only argument. A program that does not come to its
/// end has told the file first.
int main(int count, char** arguments) {
    if (count != 2) {
        std::fprintf(stderr, "usage: %s CORPUS\n", arguments[0]);
        return 2;
    }
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(arguments[1])) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        std::printf("%s\n", entry.path().filename().c_str());
        std::fflush(stdout);
        RunFile({text.begin(), text.end()});
        ++files;
    }
    std::printf("%d files\n", files);
    return files > 0 ? 0 : 1;
}
