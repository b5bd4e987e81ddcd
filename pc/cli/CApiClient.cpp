#include "cli/CApiClient.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/http/write.hpp>
#include <cstdlib>
#include <fstream>

#include "cli/ExitStatus.h"
#include "cli/Output.h"
#include "gateway/ReadGatewayConfig.h"

namespace ZELPC {

namespace http = boost::beast::http;
using boost::asio::ip::tcp;
using nlohmann::json;

namespace {

std::string ReadToken(const std::string& path) {
    const char* const variable = std::getenv("ZELPC_TOKEN");
    if (path.empty() && variable != nullptr) {
        return variable;
    }
    std::string token;
    std::ifstream file(path.empty() ? UserStateDirectory() + "/token" : path);
    if (!(file >> token) && !path.empty()) {
        throw CApiError(kUsage, path + " cannot be read");
    }
    return token;
}

}  // namespace

CApiClient::CApiClient(const ThroughGateway& gateway) : token_(ReadToken(gateway.tokenFile)) {
    const std::size_t colon = gateway.at.rfind(':');
    host_ = gateway.at.substr(0, colon);
    port_ = colon == gateway.at.npos ? "9080" : gateway.at.substr(colon + 1);
}

json CApiClient::Ask(const std::string& method, const std::string& path, const json& body) const {
    constexpr std::uint64_t kLongestAnswer = 16 << 20;
    http::response_parser<http::string_body> parser;
    parser.body_limit(kLongestAnswer);
    try {
        boost::asio::io_context context;
        tcp::resolver resolver(context);
        boost::beast::tcp_stream stream(context);
        stream.connect(resolver.resolve(host_, port_));
        http::request<http::string_body> request(http::string_to_verb(method), path, 11);
        request.set(http::field::host, host_ + ":" + port_);
        if (!token_.empty()) {
            request.set(http::field::authorization, "Bearer " + token_);
        }
        if (!body.is_null()) {
            request.set(http::field::content_type, "application/json");
            request.body() = body.dump();
        }
        request.prepare_payload();
        http::write(stream, request);
        boost::beast::flat_buffer buffer;
        http::read(stream, buffer, parser);
    } catch (const boost::system::system_error& error) {
        if (error.code() == boost::asio::error::interrupted) {
            throw CApiError(kInterrupted, "called off");
        }
        throw CApiError(kUnreachable, "the gateway at " + host_ + ":" + port_ + ": " + error.code().message());
    }
    const std::string& text = parser.get().body();
    json answer = json::parse(text, nullptr, false);
    if (parser.get().result() != http::status::ok) {
        const unsigned code = parser.get().result_int();
        const std::string reason = answer.is_object() ? answer.value("error", text) : text.substr(0, text.find('\n'));
        throw CApiError(code == 401 || code == 403 ? kRefused : code == 422 ? kUnfit : kFailed, reason);
    }
    if (answer.is_discarded()) {
        throw CApiError(kUnfit, "this is no gateway: its answer is not JSON");
    }
    return answer;
}

int AskGateway(const ThroughGateway& gateway, const std::function<int(const CApiClient&)>& work) {
    try {
        return work(CApiClient(gateway));
    } catch (const CApiError& error) {
        PrintProblem(Printable(error.what()));
        return error.Status();
    } catch (const json::exception&) {
        PrintProblem("this is no gateway of this version");
        return kUnfit;
    }
}

}  // namespace ZELPC
