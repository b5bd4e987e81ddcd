/// Writes so many bytes through the device library as the service does, from memory: `zelrm_write_blocks IMAGE BYTES`.
/// Prints the seconds. What is left of the service's own time is its reading and its reports.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <vector>

#include "platform/upgrade.h"

int main(int count, char** arguments) {
    if (count != 3) {
        std::cerr << "usage: zelrm_write_blocks IMAGE BYTES\n";
        return 1;
    }
    constexpr unsigned kBlock = 131072;
    const int image = std::atoi(arguments[1]);
    const auto size = static_cast<unsigned>(std::atol(arguments[2]));
    const std::vector<std::uint8_t> block(kBlock, 0x5A);
    const auto start = std::chrono::steady_clock::now();
    for (unsigned offset = 0; offset < size; offset += kBlock) {
        if (upImgWrite(image, block.data(), offset, std::min(kBlock, size - offset)) < 0) {
            std::cerr << "the device library refuses\n";
            return 1;
        }
    }
    std::cout << std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() << "\n";
    return 0;
}
