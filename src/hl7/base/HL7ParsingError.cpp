#include "hl7/base/HL7ParsingError.h"

#include <cstdio>
#include <string>

namespace HL7v251::Base {

void WriteParsingError(std::initializer_list<std::string_view> pieces) {
    std::string line;
    for (const std::string_view piece : pieces) {
        line.append(piece);
    }
    line.push_back('\n');
    // One write a line, so that lines of several threads do not mix.
    std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace HL7v251::Base
