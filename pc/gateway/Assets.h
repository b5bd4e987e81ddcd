#pragma once

namespace ZELPC {

extern const char kStyle[];
/// Shows what happens without a reload; the pages work without it.
extern const char kScript[];

}  // namespace ZELPC
