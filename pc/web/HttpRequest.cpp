#include "web/HttpRequest.h"

#include <algorithm>

namespace ZELPC {

namespace {

constexpr char kForm[] = "application/x-www-form-urlencoded";

std::string Header(const HttpRequest& request, std::string_view name) {
    const auto value = request[boost::beast::string_view(name.data(), name.size())];
    return {value.data(), value.size()};
}

}  // namespace

void LimitRequest(HttpRequestParser& parser) {
    parser.header_limit(kLongestHeader);
    parser.body_limit(kLongestBody);
}

WebRequest ToWebRequest(HttpRequest& request) {
    WebRequest web;
    web.method = std::string(request.method_string());
    const std::string target(request.target());
    const std::size_t query = std::min(target.find('?'), target.size());
    web.path = PercentDecode(target.substr(0, query), false);
    web.query = ParseFields(std::string_view(target).substr(std::min(query + 1, target.size())));
    web.host = Header(request, "Host");
    web.origin = Header(request, "Origin");
    web.fetchSite = Header(request, "Sec-Fetch-Site");
    web.authorization = Header(request, "Authorization");
    web.contentType = Header(request, "Content-Type");
    web.body = std::move(request.body());
    if (web.contentType.starts_with(kForm)) {
        web.form = ParseFields(web.body);
    }
    return web;
}

}  // namespace ZELPC
