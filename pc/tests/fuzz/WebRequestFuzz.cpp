#include <boost/asio/buffer.hpp>

#include "fuzz/Fuzz.h"
#include "web/CAccess.h"
#include "web/HttpRequest.h"

using Fuzz::Require;
using namespace ZELPC;
namespace asio = boost::asio;

/// What anybody sends to the gateway's page: it is taken apart within bounds, and does nothing without the token.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const CAccess access(asio::ip::make_address("0.0.0.0"), "0123456789abcdef", {"gateway.lab"});
    HttpRequestParser parser;
    LimitRequest(parser);
    boost::system::error_code error;
    Fuzz::Bytes rest(data, size);
    while (!error && !parser.is_done() && !rest.empty()) {
        const std::size_t taken = parser.put(asio::buffer(rest.data(), rest.size()), error);
        if (taken == 0) {
            break;
        }
        rest = rest.subspan(taken);
    }
    if (error || !parser.is_done()) {
        return 0;
    }
    WebRequest request = ToWebRequest(parser.get());
    Require(request.query.size() <= 64 && request.form.size() <= 64, "so many fields are taken");
    Require(request.path.size() + request.body.size() <= size, "what is decoded does not grow");
    const bool knows = Fuzz::Text({data, size}).find("123456789abcde") != std::string_view::npos ||
                       request.authorization.starts_with("Basic ") || !request.form.empty();
    if (!access.Check(request, Need::kAct)) {
        Require(knows, "nobody acts without the token");
    }
    if (!access.Check(request, Need::kRead)) {
        Require(knows, "nobody reads without the token");
    }
    Require(PercentDecode(PercentEncode(request.path), true) == request.path, "what is encoded comes back");
    return 0;
}
