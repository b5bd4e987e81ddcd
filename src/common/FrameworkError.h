#pragma once

#include <memory>
#include <string>

/// Takes an exception of the framework, which is thrown by pointer, and gives its message. Whoever catches such an
/// exception for good deletes it, and nobody else; this does it.
template <typename Exception>
[[nodiscard]] std::string TakeMessage(Exception* thrown) {
    return std::unique_ptr<Exception>(thrown)->GetMessage();
}
