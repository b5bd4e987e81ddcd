#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

#include "cli/Options.h"

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
    /// Throws CApiError when the token's file cannot be read.
    explicit CApiClient(const ThroughGateway& gateway);

    /// What the gateway answers. Throws CApiError.
    nlohmann::json Get(const std::string& path) const { return Ask("GET", path, {}); }
    nlohmann::json Post(const std::string& path, const nlohmann::json& body) const { return Ask("POST", path, body); }

private:
    nlohmann::json Ask(const std::string& method, const std::string& path, const nlohmann::json& body) const;

    std::string host_;
    std::string port_;
    const std::string token_;
};

/// Does work with a gateway and returns its ExitStatus; what fails is said on standard error and becomes one.
[[nodiscard]] int AskGateway(const ThroughGateway& gateway, const std::function<int(const CApiClient&)>& work);

}  // namespace ZELPC
