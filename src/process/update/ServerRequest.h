#pragma once

#include <chrono>
#include <string>

#include "config/CConfigMgr.h"

namespace RMUP::Process {

inline constexpr char kHttp10[] = "HTTP/1.0";
inline constexpr char kHttp11[] = "HTTP/1.1";

/// In this time the header of a response must be whole.
inline constexpr std::chrono::seconds kServerHeaderTime{30};

/// A request for a path on the update server.
inline std::string MakeServerRequest(const std::string& path, const char* protocol) {
    return "GET " + path + " " + protocol + "\r\nHost: " + CConfigMgr::GetInstance()->GetContents(kUpdateURL) +
           "\r\n\r\n";
}

}  // namespace RMUP::Process
