#pragma once

#include <algorithm>
#include <chrono>

namespace ZELPC {

/// A pause that doubles with each failure, up to a longest.
class CPause {
public:
    CPause(std::chrono::milliseconds first, std::chrono::milliseconds longest)
        : first_(first), longest_(longest), next_(first) {}

    std::chrono::milliseconds Next() { return std::exchange(next_, std::min(next_ * 2, longest_)); }
    void Reset() { next_ = first_; }

private:
    const std::chrono::milliseconds first_;
    const std::chrono::milliseconds longest_;
    std::chrono::milliseconds next_;
};

}  // namespace ZELPC
