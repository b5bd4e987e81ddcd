#include "wire/UpdateFormat.h"

#include <algorithm>

#include "wire/Bytes.h"

namespace Wire {

namespace {

constexpr std::size_t kSizeOffset = 4;
constexpr std::size_t kVersionOffset = 8;
constexpr std::size_t kTailOffset = 24;

}  // namespace

UpdateHeaderFields ParseUpdateHeader(std::span<const std::uint8_t, kUpdateHeaderSize> bytes) {
    UpdateHeaderFields header;
    header.magic = FieldText(bytes.first(kMagicSize));
    header.size = static_cast<std::int32_t>(Bytes::GetLE32(bytes, kSizeOffset));
    header.version = FieldText(bytes.subspan(kVersionOffset, kVersionSize));
    std::ranges::copy(bytes.subspan(kTailOffset), header.tail.begin());
    return header;
}

std::string FieldText(std::span<const std::uint8_t> field) {
    return std::string(field.begin(), std::ranges::find(field, std::uint8_t{0}));
}

}  // namespace Wire
