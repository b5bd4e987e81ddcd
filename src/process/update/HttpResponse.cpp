#include "process/update/HttpResponse.h"

#include <strings.h>

#include <algorithm>
#include <charconv>

namespace RMUP::Process {

namespace {

constexpr std::size_t kMaxHeaderSize = std::size_t{64} * 1024;

/// Parsing a document takes many times its size.
constexpr std::size_t kMaxDocumentSize = std::size_t{1} * 1024 * 1024;

/// The line that begins a chunk: its size, and extensions that mean nothing here.
constexpr std::size_t kMaxChunkLine = 1024;

constexpr std::string_view kHeaderEnd = "\r\n\r\n";
constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kProtocol = "HTTP/";

bool IsSame(std::string_view left, std::string_view right) {
    return left.size() == right.size() && strncasecmp(left.data(), right.data(), left.size()) == 0;
}

std::string_view Trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(kBlanks);
    return first == std::string_view::npos ? "" : text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

/// The value of the first header line of that name. The word may stand anywhere else, in another header's value too.
std::optional<std::string_view> FindField(std::string_view header, std::string_view name) {
    while (!header.empty()) {
        const std::string_view line = header.substr(0, header.find(kLineEnd));
        const std::size_t colon = line.find(':');
        if (colon != std::string_view::npos && IsSame(line.substr(0, colon), name)) {
            return Trimmed(line.substr(colon + 1));
        }
        header.remove_prefix(std::min(line.size() + kLineEnd.size(), header.size()));
    }
    return std::nullopt;
}

/// Appends so many bytes. False when the source ends or fails before.
bool Append(CByteSource& source, std::size_t count, std::string& body) {
    while (count > 0) {
        const auto piece = source.Take(count);
        if (piece.empty()) {
            return false;
        }
        body.append(piece.begin(), piece.end());
        count -= piece.size();
    }
    return true;
}

HttpBody ReadChunkLine(CByteSource& source, std::string& line) {
    line.clear();
    while (!line.ends_with(kLineEnd)) {
        if (line.size() == kMaxChunkLine) {
            return HttpBody::kInvalid;
        }
        if (!Append(source, 1, line)) {
            return HttpBody::kLost;
        }
    }
    line.resize(line.size() - kLineEnd.size());
    return HttpBody::kWhole;
}

/// Whether the line that begins a chunk tells its size.
bool ParseChunkSize(std::string_view line, std::size_t& size) {
    const std::string_view digits = Trimmed(line.substr(0, line.find(';')));
    const char* const end = digits.data() + digits.size();
    const auto [next, error] = std::from_chars(digits.data(), end, size, 16);
    return error == std::errc() && next == end;
}

/// Reads up to the last chunk; what may follow that one is left unread.
HttpBody ReadChunks(CByteSource& source, std::string& body) {
    for (std::string line;;) {
        std::size_t size = 0;
        if (const HttpBody read = ReadChunkLine(source, line); read != HttpBody::kWhole) {
            return read;
        }
        if (!ParseChunkSize(line, size) || size > kMaxDocumentSize - body.size()) {
            return HttpBody::kInvalid;
        }
        if (size == 0) {
            return HttpBody::kWhole;
        }
        if (!Append(source, size, body)) {
            return HttpBody::kLost;
        }
        if (const HttpBody read = ReadChunkLine(source, line); read != HttpBody::kWhole || !line.empty()) {
            return read == HttpBody::kWhole ? HttpBody::kInvalid : read;
        }
    }
}

}  // namespace

bool ReadHttpHeader(CByteSource& source, std::string& header) {
    header.clear();
    while (!header.ends_with(kHeaderEnd)) {
        if (header.size() == kMaxHeaderSize || !Append(source, 1, header)) {
            return false;
        }
    }
    return true;
}

HttpLength ParseLength(std::string_view header, HttpEnd& end) {
    end.reset();
    if (const auto encoding = FindField(header, "Transfer-Encoding")) {
        return IsSame(*encoding, "chunked") ? HttpLength::kGood : HttpLength::kMissing;
    }
    const auto value = FindField(header, "Content-Length");
    if (!value) {
        return HttpLength::kMissing;
    }
    const char* const last = value->data() + value->size();
    std::size_t length = 0;
    const auto [next, error] = std::from_chars(value->data(), last, length);
    if (error != std::errc() || next != last || length > kMaxDocumentSize) {
        return HttpLength::kInvalid;
    }
    end = length;
    return HttpLength::kGood;
}

HttpBody ReadHttpBody(CByteSource& source, const HttpEnd& end, std::string& body) {
    body.clear();
    if (!end) {
        return ReadChunks(source, body);
    }
    return Append(source, *end, body) ? HttpBody::kWhole : HttpBody::kLost;
}

bool IsHttpRefusal(std::string_view header) {
    if (!header.starts_with(kProtocol)) {
        return false;
    }
    const std::string_view line = header.substr(0, header.find(kLineEnd));
    const std::size_t blank = line.find(' ');
    return blank != std::string_view::npos && !line.substr(blank + 1).starts_with('2');
}

}  // namespace RMUP::Process
