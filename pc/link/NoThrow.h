#pragma once

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace ZELPC {

/// Makes an operation of Asio awaitable that gives its error as a value instead of throwing it.
inline constexpr auto kNoThrow = boost::asio::as_tuple(boost::asio::use_awaitable);

}  // namespace ZELPC
