#pragma once

#include <stdexcept>

namespace ZELPC {

/// What was asked of a link or an analyzer did not come about; the text says why, for people.
class LinkError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace ZELPC
