#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "wire/PCPacket.h"

namespace ZELPC {

/// What a packet says, in words, a line a fact; the first line names it. Whatever the bytes are: what does not fit its
/// command is said to be so. Texts hold no control characters.
[[nodiscard]] std::vector<std::string> DescribePacket(const Wire::PCHeader& header,
                                                      std::span<const std::uint8_t> payload);

/// What a code of an error notice means.
[[nodiscard]] std::string DescribeError(std::uint16_t code);

}  // namespace ZELPC
