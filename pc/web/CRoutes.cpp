#include "web/CRoutes.h"

#include <spdlog/spdlog.h>

namespace ZELPC {

namespace {

const std::string kGet = "GET";

std::vector<std::string> Split(std::string_view path) {
    std::vector<std::string> parts;
    while (!path.empty()) {
        path.remove_prefix(1);
        const std::string_view part = path.substr(0, path.find('/'));
        parts.emplace_back(part);
        path.remove_prefix(part.size());
    }
    return parts;
}

/// Whether the path is of the route's form; collects what stands at its "*".
bool Matches(const std::vector<std::string>& form, const std::vector<std::string>& path,
             std::vector<std::string>& parts) {
    if (form.size() != path.size()) {
        return false;
    }
    parts.clear();
    for (std::size_t index = 0; index < form.size(); ++index) {
        if (form[index] == "*" && !path[index].empty()) {
            parts.push_back(path[index]);
        } else if (form[index] != path[index]) {
            return false;
        }
    }
    return true;
}

}  // namespace

void CRoutes::Add(std::string method, std::string path, Need need, Handler handler) {
    routes_.push_back({std::move(method), Split(path), need, std::move(handler)});
}

void CRoutes::Add(std::string method, std::string path, Need need, Answer answer) {
    Add(std::move(method), std::move(path), need,
        Handler([answer = std::move(answer)](const WebRequest& request) -> asio::awaitable<WebResponse> {
            co_return answer(request);
        }));
}

const CRoutes::Route* CRoutes::Find(const WebRequest& request, std::vector<std::string>& parts,
                                    bool& otherMethod) const {
    const std::vector<std::string> path = Split(request.path);
    // What watches over a service often asks for the head alone.
    const std::string& method = request.method == "HEAD" ? kGet : request.method;
    for (const Route& route : routes_) {
        if (Matches(route.path, path, parts)) {
            if (route.method == method) {
                return &route;
            }
            otherMethod = true;
        }
    }
    return nullptr;
}

asio::awaitable<WebResponse> CRoutes::Handle(const CAccess& access, WebRequest& request) const {
    bool otherMethod = false;
    const Route* const route = Find(request, request.parts, otherMethod);
    // What is not there is told only to those who may read.
    if (auto refusal = access.Check(request, route == nullptr ? Need::kRead : route->need); refusal.has_value()) {
        co_return std::move(*refusal);
    }
    if (route == nullptr) {
        co_return otherMethod ? WebResponse::Text(405, "not by this method\n") : WebResponse::Text(404, "not here\n");
    }
    try {
        co_return co_await route->handler(request);
    } catch (const std::exception& error) {
        spdlog::error("{} {}: {}", request.method, request.path, error.what());
        co_return WebResponse::Text(500, std::string("that failed: ") + error.what() + "\n");
    }
}

}  // namespace ZELPC
