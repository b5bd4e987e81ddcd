#pragma once

#include <boost/asio/awaitable.hpp>
#include <functional>
#include <string>
#include <vector>

#include "web/CAccess.h"
#include "web/WebMessage.h"

namespace ZELPC {

namespace asio = boost::asio;

/// Which request is answered by whom.
class CRoutes {
public:
    using Handler = std::function<asio::awaitable<WebResponse>(const WebRequest& request)>;
    using Answer = std::function<WebResponse(const WebRequest& request)>;

    /// `path` may hold "*" in place of a part between slashes.
    void Add(std::string method, std::string path, Need need, Handler handler);
    /// For what is answered without waiting.
    void Add(std::string method, std::string path, Need need, Answer answer);

    /// Checks access and answers. What a handler throws becomes a page that says that something failed.
    asio::awaitable<WebResponse> Handle(const CAccess& access, WebRequest& request) const;

private:
    struct Route {
        std::string method;
        std::vector<std::string> path;
        Need need;
        Handler handler;
    };

    const Route* Find(const WebRequest& request, std::vector<std::string>& parts, bool& otherMethod) const;

    std::vector<Route> routes_;
};

}  // namespace ZELPC
