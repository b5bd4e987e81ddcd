#pragma once

#include <string>
#include <string_view>

namespace ZELPC {

/// Why `text` cannot be a result, in words; empty when it can. The analyzer sends an empty text when its tables cannot
/// be read and a header alone when the measurement is missing: whoever acknowledges these loses a result.
std::string WhyNoResult(std::string_view text);

/// What a repeated result has in common with its first arrival: the SHA-256 of its text without MSH-7, the time at
/// which the message was built. 32 bytes.
std::string ResultDigest(std::string_view text);

}  // namespace ZELPC
