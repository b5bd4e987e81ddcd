#pragma once

#include <boost/asio/ip/address.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "web/WebMessage.h"

namespace ZELPC {

enum class Need {
    kNothing,  ///< for everybody: whether the gateway lives
    kRead,     ///< what patients' results are: for everybody on this machine, with the token from elsewhere
    kAct,      ///< changes something: the token, from nobody else's page
};

/// Who may do what.
///
/// The token comes as "Authorization: Bearer", as the password of Basic authentication (so that a browser asks for it),
/// or as the field "token" of a form. A browser sends a password that it knows with every request, whichever page made
/// it; so an act by password also needs the field "guard", which only a page of this gateway holds, and every act of a
/// browser must come from a page of this gateway. A name under which nobody knows this gateway is refused, so that a
/// foreign page cannot reach it through a name of its own that leads here.
class CAccess {
public:
    /// `hosts` are names that are accepted beside "localhost" and numeric addresses.
    CAccess(const boost::asio::ip::address& bound, std::string token, std::vector<std::string> hosts);

    /// The refusal, or nothing. Notes in the request whether it came with the token.
    std::optional<WebResponse> Check(WebRequest& request, Need need) const;

    /// What a form of a page holds in its field "guard".
    const std::string& Guard() const { return guard_; }
    bool HasToken() const { return !token_.empty(); }

private:
    bool KnowsHost(std::string_view host) const;
    bool IsOwnPage(const WebRequest& request) const;
    bool IsToken(std::string_view given) const;
    bool HasPassword(const WebRequest& request) const;
    bool HasExplicitToken(const WebRequest& request) const;

    const bool local_;
    const std::string token_;
    const std::vector<std::string> hosts_;
    const std::string guard_;
};

}  // namespace ZELPC
