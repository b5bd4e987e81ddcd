#pragma once

#include <atomic>
#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>
#include <list>
#include <memory>
#include <mutex>
#include <set>

#include "web/CAccess.h"
#include "web/CEventHub.h"
#include "web/CRoutes.h"
#include "web/HttpRequest.h"

namespace ZELPC {

/// Serves HTTP/1.1 within bounds: a hundred connections, 8 KiB of header, 64 KiB of body, half a minute a request.
/// When all are taken, the one whose next request has been awaited longest makes room, so that who says nothing, or
/// says it slowly, keeps nobody out.
class CHttpServer : public std::enable_shared_from_this<CHttpServer> {
public:
    /// Binds; throws boost::system::system_error when that is not possible.
    CHttpServer(asio::any_io_executor executor, const asio::ip::tcp::endpoint& endpoint, CAccess access, CRoutes routes,
                CEventHub& events);

    void Start();
    /// Closes everything. Repeating it does nothing.
    void Stop();
    asio::ip::tcp::endpoint Endpoint() const { return endpoint_; }

private:
    using Response = boost::beast::http::response<boost::beast::http::string_body>;
    using Stream = boost::beast::tcp_stream;

    static constexpr std::size_t kMostConnections = 100;

    asio::awaitable<void> Accept();
    asio::awaitable<void> Serve(std::shared_ptr<Stream> stream);
    asio::awaitable<bool> ServeOne(const std::shared_ptr<Stream>& stream, boost::beast::flat_buffer& buffer);
    asio::awaitable<void> StreamEvents(Stream& stream);
    static Response MakeResponse(const WebResponse& answer, const HttpRequest& request);
    bool Keep(const std::shared_ptr<Stream>& stream);
    void Await(const std::shared_ptr<Stream>& stream);
    bool TakeUp(const std::shared_ptr<Stream>& stream);
    void Forget(const std::shared_ptr<Stream>& stream);

    const asio::any_io_executor executor_;
    asio::ip::tcp::acceptor acceptor_;
    const asio::ip::tcp::endpoint endpoint_;
    const CAccess access_;
    const CRoutes routes_;
    CEventHub& events_;
    std::mutex mutex_;
    std::set<std::shared_ptr<Stream>> streams_;    // under mutex_, as what follows
    std::list<std::shared_ptr<Stream>> awaiting_;  // those without a whole request, the oldest first
    bool stopping_ = false;
};

}  // namespace ZELPC
