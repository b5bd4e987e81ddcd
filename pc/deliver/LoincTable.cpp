#include "deliver/LoincTable.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <stdexcept>

namespace ZELPC {

namespace {

std::string_view Trim(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r";
    const std::size_t begin = std::min(text.find_first_not_of(kBlanks), text.size());
    text.remove_prefix(begin);
    return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

std::string_view Unquote(std::string_view text) {
    return text.size() >= 2 && text.front() == '"' && text.back() == '"' ? text.substr(1, text.size() - 2) : text;
}

std::string_view Column(std::string_view& line) {
    const std::size_t comma = std::min(line.find(','), line.size());
    const std::string_view column = Unquote(Trim(line.substr(0, comma)));
    line.remove_prefix(std::min(comma + 1, line.size()));
    return column;
}

bool IsDigit(char character) {
    return std::isdigit(static_cast<unsigned char>(character)) != 0;
}

/// A LOINC code is a number, "-" and its check digit, modulus 10 as on a bank card. A wrong code would name another
/// analyte.
bool IsLoinc(std::string_view code) {
    if (code.size() < 3 || code.size() > 8 || code[code.size() - 2] != '-' || !IsDigit(code.back())) {
        return false;
    }
    const std::string_view number = code.substr(0, code.size() - 2);
    int sum = 0;
    for (std::size_t position = 0; position < number.size(); ++position) {
        if (!IsDigit(number[position])) {
            return false;
        }
        const int digit = number[position] - '0';
        const bool doubled = (number.size() - position) % 2 == 1;
        sum += doubled ? digit * 2 / 10 + digit * 2 % 10 : digit;
    }
    return (10 - sum % 10) % 10 == code.back() - '0';
}

}  // namespace

std::map<std::string, std::string> ReadLoincTable(std::string_view text) {
    std::map<std::string, std::string> table;
    for (int number = 1; !text.empty(); ++number) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = Trim(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
        if (line.empty() || line.front() == '#') {
            continue;
        }
        const std::string analyte(Column(line));
        const std::string code(Column(line));
        if (analyte.empty() || !IsLoinc(code)) {
            throw std::runtime_error(
                fmt::format("line {}: \"{}\" is not a LOINC code of \"{}\"", number, code, analyte));
        }
        if (!table.emplace(analyte, code).second) {
            throw std::runtime_error(fmt::format("line {}: the analyte \"{}\" stands there twice", number, analyte));
        }
    }
    return table;
}

}  // namespace ZELPC
