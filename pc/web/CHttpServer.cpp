#include "web/CHttpServer.h"

#include <spdlog/spdlog.h>

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/write.hpp>

namespace ZELPC {

namespace {

namespace beast = boost::beast;
namespace http = boost::beast::http;

constexpr auto kAsTuple = asio::as_tuple(asio::use_awaitable);
constexpr auto kPatience = std::chrono::seconds(30);

/// Nothing is loaded from elsewhere, and no other page can frame this one, load parts of it or send its forms.
constexpr std::pair<const char*, const char*> kHeaders[] = {
    {"Content-Security-Policy",
     "default-src 'none'; style-src 'self'; script-src 'self'; connect-src 'self'; img-src data:; form-action 'self'; "
     "frame-ancestors 'none'; base-uri 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Referrer-Policy", "same-origin"},
    {"Cache-Control", "no-store"},
};

}  // namespace

CHttpServer::CHttpServer(asio::any_io_executor executor, const asio::ip::tcp::endpoint& endpoint, CAccess access,
                         CRoutes routes, CEventHub& events)
    : executor_(std::move(executor)),
      acceptor_(asio::make_strand(executor_), endpoint),
      endpoint_(acceptor_.local_endpoint()),
      access_(std::move(access)),
      routes_(std::move(routes)),
      events_(events) {}

void CHttpServer::Start() {
    asio::co_spawn(
        acceptor_.get_executor(), [self = shared_from_this()] { return self->Accept(); }, asio::detached);
}

void CHttpServer::Stop() {
    events_.Stop();
    asio::post(acceptor_.get_executor(), [self = shared_from_this()] {
        boost::system::error_code ignored;
        self->acceptor_.close(ignored);
    });
    const std::lock_guard lock(mutex_);
    stopping_ = true;
    for (const auto& stream : streams_) {
        asio::post(stream->get_executor(), [stream] { stream->close(); });
    }
}

asio::awaitable<void> CHttpServer::Accept() {
    while (acceptor_.is_open()) {
        auto [error, socket] = co_await acceptor_.async_accept(asio::make_strand(executor_), kAsTuple);
        if (error == asio::error::operation_aborted) {
            co_return;
        }
        if (error) {
            // Mostly that there are no more descriptors: others have to end first.
            asio::steady_timer pause(acceptor_.get_executor(), std::chrono::milliseconds(200));
            co_await pause.async_wait(kAsTuple);
            continue;
        }
        auto stream = std::make_shared<Stream>(std::move(socket));
        if (Keep(stream)) {
            asio::co_spawn(
                stream->get_executor(), [self = shared_from_this(), stream] { return self->Serve(stream); },
                asio::detached);
        }
    }
}

asio::awaitable<void> CHttpServer::Serve(std::shared_ptr<Stream> stream) {
    beast::flat_buffer buffer(kLongestHeader + kLongestBody);
    try {
        while (co_await ServeOne(stream, buffer)) {
            Await(stream);
        }
    } catch (const std::exception& error) {
        spdlog::debug("web: {}", error.what());
    }
    boost::system::error_code ignored;
    stream->socket().shutdown(asio::ip::tcp::socket::shutdown_send, ignored);
    Forget(stream);
}

/// One request and its answer; false when the connection is at its end.
asio::awaitable<bool> CHttpServer::ServeOne(const std::shared_ptr<Stream>& kept, beast::flat_buffer& buffer) {
    Stream& stream = *kept;
    HttpRequestParser parser;
    LimitRequest(parser);
    stream.expires_after(kPatience);
    const auto [error, size] = co_await http::async_read(stream, buffer, parser, kAsTuple);
    if (!TakeUp(kept)) {
        co_return false;
    }
    if (error) {
        if (error == http::error::header_limit || error == http::error::body_limit ||
            error.category() == http::make_error_code(http::error::bad_method).category()) {
            Response refusal = MakeResponse(WebResponse::Text(400, "this request cannot be read\n"), HttpRequest{});
            refusal.keep_alive(false);
            co_await http::async_write(stream, refusal, kAsTuple);
        }
        co_return false;
    }
    HttpRequest& request = parser.get();
    WebRequest web = ToWebRequest(request);
    const WebResponse answer = co_await routes_.Handle(access_, web);
    if (answer.eventStream && request.method() != http::verb::head) {
        co_await StreamEvents(stream);
        co_return false;
    }
    Response response = MakeResponse(answer, request);
    stream.expires_after(kPatience);
    co_await http::async_write(stream, response, asio::use_awaitable);
    co_return response.keep_alive();
}

CHttpServer::Response CHttpServer::MakeResponse(const WebResponse& answer, const HttpRequest& request) {
    Response response(static_cast<http::status>(answer.status), request.version());
    for (const auto& [name, value] : kHeaders) {
        response.set(name, value);
    }
    for (const auto& [name, value] : answer.headers) {
        response.set(name, value);
    }
    response.set(http::field::content_type, answer.contentType);
    response.keep_alive(request.keep_alive());
    response.body() = answer.body;
    response.prepare_payload();
    if (request.method() == http::verb::head) {
        response.body().clear();
    }
    return response;
}

asio::awaitable<void> CHttpServer::StreamEvents(Stream& stream) {
    const auto listener = events_.Listen(stream.get_executor());
    std::string text = listener == nullptr
                           ? "HTTP/1.1 503 Service Unavailable\r\nConnection: close\r\nContent-Length: 0\r\n\r\n"
                           : "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\nCache-Control: no-store\r\n"
                             "Connection: close\r\n\r\nretry: 3000\n\n";
    while (!text.empty()) {
        stream.expires_after(kPatience);
        const auto [error, size] = co_await asio::async_write(stream, asio::buffer(text), kAsTuple);
        if (error || listener == nullptr) {
            co_return;
        }
        stream.expires_never();
        text = co_await listener->Next();
    }
}

/// Whether there is room for a new connection, which then awaits its first request.
bool CHttpServer::Keep(const std::shared_ptr<Stream>& stream) {
    const std::lock_guard lock(mutex_);
    if (streams_.size() >= kMostConnections && !awaiting_.empty()) {
        const std::shared_ptr<Stream> oldest = awaiting_.front();
        awaiting_.pop_front();
        streams_.erase(oldest);
        asio::post(oldest->get_executor(), [oldest] { oldest->close(); });
    }
    if (stopping_ || streams_.size() >= kMostConnections) {
        return false;
    }
    streams_.insert(stream);
    awaiting_.push_back(stream);
    return true;
}

void CHttpServer::Await(const std::shared_ptr<Stream>& stream) {
    const std::lock_guard lock(mutex_);
    awaiting_.push_back(stream);
}

/// Whether the request that was read is to be answered: its connection has not made room for another one meanwhile.
bool CHttpServer::TakeUp(const std::shared_ptr<Stream>& stream) {
    const std::lock_guard lock(mutex_);
    return awaiting_.remove(stream) > 0;
}

void CHttpServer::Forget(const std::shared_ptr<Stream>& stream) {
    const std::lock_guard lock(mutex_);
    streams_.erase(stream);
    awaiting_.remove(stream);
}

}  // namespace ZELPC
