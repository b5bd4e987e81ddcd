#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/Fuzz.h"

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
        const std::string bytes{std::istreambuf_iterator<char>(file), {}};
        // In memory of exactly its size, so that a sanitizer sees a read behind its end.
        const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
        std::printf("%s\n", entry.path().filename().c_str());
        std::fflush(stdout);
        LLVMFuzzerTestOneInput(input.data(), input.size());
        ++files;
    }
    std::printf("%d files\n", files);
    return files > 0 ? 0 : 1;
}
