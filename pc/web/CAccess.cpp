#include "web/CAccess.h"

#include <fmt/format.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>
#include <array>
#include <boost/beast/core/detail/base64.hpp>
#include <stdexcept>

namespace ZELPC {

namespace {

std::string RandomText() {
    std::array<unsigned char, 16> bytes{};
    if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) {
        throw std::runtime_error("no random numbers");
    }
    return fmt::format("{:02x}", fmt::join(bytes, ""));
}

/// In a time that does not tell how much of it is right.
bool SameSecret(std::string_view left, std::string_view right) {
    return left.size() == right.size() && CRYPTO_memcmp(left.data(), right.data(), left.size()) == 0;
}

/// The name in "name", "name:port" and "[address]:port".
std::string_view HostName(std::string_view host) {
    if (host.starts_with('[')) {
        return host.substr(1, std::min(host.find(']'), host.size()) - 1);
    }
    return host.substr(0, host.find(':'));
}

/// What follows `scheme` in an Authorization header; empty when it is another scheme.
std::string_view Credentials(std::string_view authorization, std::string_view scheme) {
    return authorization.starts_with(scheme) ? authorization.substr(scheme.size()) : std::string_view();
}

/// The password of Basic authentication; the user name is of no interest.
std::string Password(std::string_view authorization) {
    namespace base64 = boost::beast::detail::base64;
    const std::string_view encoded = Credentials(authorization, "Basic ");
    // The size is told for whole groups of four, but what is left over is decoded, too.
    std::string decoded(base64::decoded_size(encoded.size() + 3), '\0');
    decoded.resize(base64::decode(decoded.data(), encoded.data(), encoded.size()).first);
    const std::size_t colon = decoded.find(':');
    return colon == decoded.npos ? std::string() : decoded.substr(colon + 1);
}

}  // namespace

CAccess::CAccess(const boost::asio::ip::address& bound, std::string token, std::vector<std::string> hosts)
    : local_(bound.is_loopback()), token_(std::move(token)), hosts_(std::move(hosts)), guard_(RandomText()) {}

std::optional<WebResponse> CAccess::Check(WebRequest& request, Need need) const {
    if (!KnowsHost(request.host)) {
        return WebResponse::Text(421, "this gateway is not known by that name; see \"hosts\" in its configuration\n");
    }
    request.authenticated = HasExplicitToken(request) || HasPassword(request);
    if (need == Need::kNothing || (need == Need::kRead && (local_ || request.authenticated))) {
        return std::nullopt;
    }
    if (need == Need::kRead) {
        WebResponse refusal = WebResponse::Text(401, "the gateway's token is needed\n");
        refusal.headers.emplace_back("WWW-Authenticate", "Basic realm=\"zelpc: any name, the token as password\"");
        return refusal;
    }
    if (!IsOwnPage(request)) {
        return WebResponse::Text(403, "this was asked for by a page of somebody else\n");
    }
    const bool guarded = SameSecret(request.Get("guard"), guard_);
    if (HasExplicitToken(request) || (guarded && HasPassword(request))) {
        return std::nullopt;
    }
    return WebResponse::Text(403, token_.empty() ? "this gateway has no token, so nothing can be changed here\n"
                                                 : "the gateway's token is needed, and it was not given\n");
}

bool CAccess::KnowsHost(std::string_view host) const {
    const std::string name(HostName(host));
    boost::system::error_code error;
    boost::asio::ip::make_address(name, error);
    return !error || name == "localhost" || std::ranges::find(hosts_, name) != hosts_.end();
}

/// A browser says which page a request comes from. A program says nothing of the kind, and sends a token by itself.
bool CAccess::IsOwnPage(const WebRequest& request) const {
    if (!request.fetchSite.empty() && request.fetchSite != "same-origin" && request.fetchSite != "none") {
        return false;
    }
    return request.origin.empty() || request.origin == "http://" + request.host ||
           request.origin == "https://" + request.host;
}

bool CAccess::IsToken(std::string_view given) const {
    return !token_.empty() && SameSecret(given, token_);
}

bool CAccess::HasPassword(const WebRequest& request) const {
    return IsToken(Password(request.authorization));
}

bool CAccess::HasExplicitToken(const WebRequest& request) const {
    const auto field = request.form.find("token");
    return IsToken(Credentials(request.authorization, "Bearer ")) ||
           (field != request.form.end() && IsToken(field->second));
}

}  // namespace ZELPC
