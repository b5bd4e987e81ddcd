#include "process/update/HttpResponse.h"

#include <sys/socket.h>

#include "fuzz/Fuzz.h"
#include "process/update/CHttpConnection.h"

using namespace RMUP::Process;
using Fuzz::Require;

/// The answer of the update server over a connection: its header, length and body.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    int ends[2] = {-1, -1};
    Require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "there are sockets");
    CHttpConnection connection{CDescriptor(ends[0])};
    {
        const CDescriptor server(ends[1]);
        Require(send(server.Get(), data, size, MSG_DONTWAIT) == static_cast<ssize_t>(size), "the answer fits a socket");
    }

    const std::string_view answer = Fuzz::Text({data, size});
    const std::size_t end = answer.find("\r\n\r\n");
    std::string header;
    connection.LimitTime(std::chrono::seconds(30));
    if (!ReadHttpHeader(connection, header)) {
        Require(end == std::string_view::npos || end > 65532, "a header that has an end is read");
        return 0;
    }
    connection.UnlimitTime();
    Require(header == answer.substr(0, end + 4), "the header goes up to the empty line");
    const bool refused = IsHttpRefusal(header);
    Require(!refused || header.starts_with("HTTP/"), "only a status line refuses");

    std::size_t length = 0;
    const HttpLength found = ParseContentLength(header, length);
    Require((found == HttpLength::kMissing) == (header.find("Content-Length") == std::string::npos),
            "a length is missing where it has no name");
    if (found != HttpLength::kGood) {
        return 0;
    }
    Require(length <= std::size_t{16} * 1024 * 1024, "a document is of bounded size");
    std::string body;
    const bool whole = ReadHttpBody(connection, length, body);
    Require(whole == (header.size() + length <= size), "a body is whole when all its bytes came");
    Require(body == answer.substr(header.size(), length), "the body follows the header");
    return 0;
}
