#pragma once

#include <chrono>
#include <limits>
#include <string>

#include "process/update/CReceiveLimit.h"

namespace RMUP::Process {

inline constexpr char kHttp10[] = "HTTP/1.0";
inline constexpr char kHttp11[] = "HTTP/1.1";

/// The header of a response must be whole in this time, whatever trickles in.
inline constexpr CReceiveLimit kHeaderLimit{std::chrono::seconds{30}, std::numeric_limits<std::size_t>::max()};

/// What the body must bring. A server that is slower would keep the analyzer in an update for hours.
inline constexpr CReceiveLimit kBodyLimit{std::chrono::seconds{60}, 4096};

/// A request for a path on the update server, which is known under this name.
inline std::string MakeServerRequest(const std::string& host, const std::string& path, const char* protocol) {
    return "GET " + path + " " + protocol + "\r\nHost: " + host + "\r\n\r\n";
}

}  // namespace RMUP::Process
