#pragma once

#include <string>

#include "store/Records.h"

namespace ZELPC {

/// A result readably beside its raw text.
std::string ResultHtml(const StoredResult& result);
/// A message's text for people: one segment a line.
std::string RawText(const std::string& text);

}  // namespace ZELPC
