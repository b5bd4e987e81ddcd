#pragma once

#include <map>
#include <string>
#include <string_view>

namespace ZELPC {

/// Reads a table "analyte,LOINC code" a line; what follows a second comma, empty lines and lines that begin with "#"
/// are for people. Throws std::runtime_error that names the line when one is wrong: not two columns, a code whose check
/// digit does not fit, an analyte twice.
std::map<std::string, std::string> ReadLoincTable(std::string_view text);

}  // namespace ZELPC
