/// Prints how many bytes on the heap an empty and a filled result message take, as JSON, and writes the filled message
/// to the file that is named, for others to measure themselves on.

#include <fstream>
#include <iostream>

#include "CountedHeap.h"
#include "ThirtyAnalytes.h"

int main(int count, char** arguments) {
    const std::size_t before = CountedHeap::Live();
    ZELHL7::COUL_R22Wrap message;
    const std::size_t empty = CountedHeap::Live() - before + sizeof(message);
    FillThirtyAnalytes(message);
    const std::size_t filled = CountedHeap::Live() - before + sizeof(message);
    std::cout << R"({"empty": )" << empty << R"(, "filled": )" << filled << "}\n";
    if (count == 2) {
        std::string text;
        message.GetMessageText(text);
        return (std::ofstream(arguments[1], std::ios::binary) << text).flush() ? 0 : 1;
    }
    return 0;
}
