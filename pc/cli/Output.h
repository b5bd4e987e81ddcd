#pragma once

#include <chrono>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace ZELPC {

/// Writes a line to standard output at once. The text may come from outside: see Printable.
void PrintLine(std::string_view line);

/// Writes a JSON object as one line. Texts that are not UTF-8 are made so.
void PrintJson(const nlohmann::json& object);

/// Writes "zelpc: TEXT" to standard error.
void PrintProblem(std::string_view text);

/// Whether standard output is a terminal.
[[nodiscard]] bool IsTerminal();

/// A text that does nothing to a terminal: control characters and what is not UTF-8 become "?".
[[nodiscard]] std::string Printable(std::string_view text);

/// Blanks behind the text until it is so many characters wide.
[[nodiscard]] std::string Pad(std::string_view text, std::size_t width);

/// Lines of columns that stand below each other; the last column is not padded.
[[nodiscard]] std::vector<std::string> Table(const std::vector<std::vector<std::string>>& rows);

/// "2026-11-21 10:36:37", local time.
[[nodiscard]] std::string TimeText(std::chrono::system_clock::time_point time);

/// "20261121103637" and "20261121" as they are read; other texts as they are.
[[nodiscard]] std::string DateText(const std::string& digits);

}  // namespace ZELPC
