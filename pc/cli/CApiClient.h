#pragma once

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

namespace ZELPC {

/// A gateway could not be asked, or answered that it will not; `status` is an ExitStatus.
class CApiError : public std::runtime_error {
public:
    CApiError(int status, const std::string& text) : std::runtime_error(text), status_(status) {}
    int Status() const { return status_; }

private:
    int status_;
};

/// Asks a gateway through its API (docs/gateway.md).
class CApiClient {
public:
    /// `gateway` is "host:port", or a host alone.
    CApiClient(const std::string& gateway, std::string token);

    /// What the gateway answers. Throws CApiError.
    nlohmann::json Get(const std::string& path) const { return Ask("GET", path, {}); }
    nlohmann::json Post(const std::string& path, const nlohmann::json& body) const { return Ask("POST", path, body); }

private:
    nlohmann::json Ask(const std::string& method, const std::string& path, const nlohmann::json& body) const;

    std::string host_;
    std::string port_;
    const std::string token_;
};

}  // namespace ZELPC
