#pragma once

#include <stdexcept>
#include <string>

#include "cli/Options.h"

namespace ZELPC {

/// There is no usable password; the text says why.
class PasswordError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The question for the password was answered with Ctrl-C.
struct CalledOff {};

/// The administrator password: the first line of the file, or else the environment's ZELPC_PASSWORD, or else asked for
/// on the terminal, unseen. Throws PasswordError and CalledOff.
[[nodiscard]] std::string ReadPassword(const PasswordOptions& options, const std::string& host);

}  // namespace ZELPC
