#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace ZELPC {

/// Values by name; of a name that comes several times, the first.
using WebFields = std::map<std::string, std::string, std::less<>>;

/// One request, as far as handlers care.
struct WebRequest {
    std::string method;
    std::string path;  ///< decoded, without the query
    WebFields query;
    WebFields form;  ///< of an HTML form's body
    std::string body;
    std::string contentType;
    std::string host;
    std::string origin;
    std::string fetchSite;  ///< Sec-Fetch-Site, which browsers send
    std::string authorization;
    std::vector<std::string> parts;  ///< what stood at the "*" of the route's path
    /// Whether the request came with the token, so that a page may offer acts without asking for it again.
    bool authenticated = false;

    /// A value of the query, or of the form; empty when there is none.
    const std::string& Get(std::string_view name) const;
};

struct WebResponse {
    int status = 200;
    std::string contentType = "text/html; charset=utf-8";
    std::string body;
    std::vector<std::pair<std::string, std::string>> headers;
    bool eventStream = false;  ///< instead of a body: what happens from now on, as server-sent events

    static WebResponse Text(int status, std::string text);
    static WebResponse Json(int status, std::string json);
    /// After an act of a form: shows `path`.
    static WebResponse SeeOther(const std::string& path);
};

/// The fields of a query or of a form's body.
WebFields ParseFields(std::string_view text);
/// Resolves %XX, and "+" when it stands for a blank; what is no such code stays as it is.
std::string PercentDecode(std::string_view text, bool plusIsBlank);
/// Makes a value fit for a query.
std::string PercentEncode(std::string_view text);

}  // namespace ZELPC
