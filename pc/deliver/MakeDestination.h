#pragma once

#include <boost/asio/any_io_executor.hpp>
#include <memory>

#include "deliver/CDestination.h"
#include "deliver/DestinationOptions.h"

namespace ZELPC {

/// The destination that the options describe; a new kind of destination is a line here and a file of its own.
std::unique_ptr<CDestination> MakeDestination(const asio::any_io_executor& executor, const DestinationOptions& options);

}  // namespace ZELPC
