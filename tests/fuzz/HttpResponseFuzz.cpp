#include "process/update/HttpResponse.h"

#include <sys/socket.h>

#include <algorithm>
#include <cctype>

#include "fuzz/Fuzz.h"
#include "process/update/CHttpConnection.h"
#include "process/update/ServerRequest.h"

using namespace RMUP::Process;
using Fuzz::Require;

/// The answer of the update server over a connection: its header, length and body.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    int ends[2] = {-1, -1};
    Require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "there are sockets");
    CHttpConnection connection{CDescriptor(ends[0]), kHeaderLimit};
    {
        const CDescriptor server(ends[1]);
        Require(send(server.Get(), data, size, MSG_DONTWAIT) == static_cast<ssize_t>(size), "the answer fits a socket");
    }

    const std::string_view answer = Fuzz::Text({data, size});
    const std::size_t end = answer.find("\r\n\r\n");
    std::string header;
    if (!ReadHttpHeader(connection, header)) {
        Require(end == std::string_view::npos || end > 65532, "a header that has an end is read");
        return 0;
    }
    Require(header == answer.substr(0, end + 4), "the header goes up to the empty line");
    const bool refused = IsHttpRefusal(header);
    Require(!refused || header.starts_with("HTTP/"), "only a status line refuses");

    HttpEnd length;
    const HttpLength found = ParseLength(header, length);
    std::string lower = header;
    std::ranges::transform(lower, lower.begin(), [](unsigned char character) { return std::tolower(character); });
    if (found != HttpLength::kGood) {
        return 0;
    }
    Require(lower.find(length ? "content-length:" : "transfer-encoding:") != std::string::npos, "an end has a name");
    Require(!length || *length <= std::size_t{1} * 1024 * 1024, "a document is of bounded size");
    std::string body;
    const HttpBody read = ReadHttpBody(connection, length, body);
    Require(body.size() <= size - header.size(), "no more is read than came");
    if (length) {
        Require((read == HttpBody::kWhole) == (header.size() + *length <= size), "a body is whole when all bytes came");
        Require(body == answer.substr(header.size(), *length), "the body follows the header");
    }
    return 0;
}
