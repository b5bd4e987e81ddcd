#pragma once

#include <boost/beast/http/message.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>
#include <cstdint>

#include "web/WebMessage.h"

namespace ZELPC {

using HttpRequest = boost::beast::http::request<boost::beast::http::string_body>;
using HttpRequestParser = boost::beast::http::request_parser<boost::beast::http::string_body>;

inline constexpr std::uint32_t kLongestHeader = 8 * 1024;
inline constexpr std::uint64_t kLongestBody = 64 * 1024;

void LimitRequest(HttpRequestParser& parser);

/// What handlers care for of a request that was read. Takes its body.
WebRequest ToWebRequest(HttpRequest& request);

}  // namespace ZELPC
