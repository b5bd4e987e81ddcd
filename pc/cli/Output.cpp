#include "cli/Output.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>

namespace ZELPC {

namespace {

/// The length of the UTF-8 character that begins the text, 0 when none does or it is a control character.
std::size_t PrintableLength(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text[0]);
    if (lead < 0x80) {
        return lead >= ' ' && lead != 0x7F ? 1 : 0;
    }
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length) {
        return 0;
    }
    const bool continued = std::ranges::all_of(text.substr(1, length - 1),
                                               [](char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; });
    // U+0080 to U+009F are control characters too, and some terminals obey them.
    const bool control = lead == 0xC2 && static_cast<unsigned char>(text[1]) < 0xA0;
    return continued && !control ? length : 0;
}

std::size_t WidthOf(std::string_view text) {
    return static_cast<std::size_t>(
        std::ranges::count_if(text, [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

void Write(std::FILE* file, std::string text) {
    text += '\n';
    std::fwrite(text.data(), 1, text.size(), file);
    std::fflush(file);
}

}  // namespace

void PrintLine(std::string_view line) {
    Write(stdout, Printable(line));
}

void PrintJson(const nlohmann::json& object) {
    Write(stdout, object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
}

void PrintProblem(std::string_view text) {
    Write(stderr, "zelpc: " + Printable(text));
}

bool IsTerminal() {
    return isatty(STDOUT_FILENO) == 1;
}

std::string Printable(std::string_view text) {
    std::string printable;
    while (!text.empty()) {
        const std::size_t length = PrintableLength(text);
        printable += length == 0 ? "?" : text.substr(0, length);
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return printable;
}

std::string Pad(std::string_view text, std::size_t width) {
    std::string padded(text);
    const std::size_t own = WidthOf(text);
    padded.append(own < width ? width - own : 0, ' ');
    return padded;
}

std::vector<std::string> Table(const std::vector<std::vector<std::string>>& rows) {
    constexpr std::string_view kGap = "  ";
    std::vector<std::size_t> widths;
    for (const auto& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], WidthOf(row[i]));
        }
    }
    std::vector<std::string> lines;
    for (const auto& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            line += i + 1 < row.size() ? Pad(row[i], widths[i]).append(kGap) : row[i];
        }
        line.erase(line.find_last_not_of(' ') + 1);
        lines.push_back(std::move(line));
    }
    return lines;
}

std::string TimeText(std::chrono::system_clock::time_point time) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm parts{};
    localtime_r(&seconds, &parts);
    char text[32];
    const std::size_t length = std::strftime(text, sizeof text, "%F %T", &parts);
    return {text, length};
}

std::string DateText(const std::string& digits) {
    constexpr std::size_t kDate = 8;
    constexpr std::size_t kDateAndTime = 14;
    const bool numbers = std::ranges::all_of(digits, [](char c) { return c >= '0' && c <= '9'; });
    if (!numbers || (digits.size() != kDate && digits.size() != kDateAndTime)) {
        return digits;
    }
    std::string text = digits.substr(0, 4) + "-" + digits.substr(4, 2) + "-" + digits.substr(6, 2);
    if (digits.size() == kDateAndTime) {
        text += " " + digits.substr(8, 2) + ":" + digits.substr(10, 2) + ":" + digits.substr(12, 2);
    }
    return text;
}

}  // namespace ZELPC
