#include "process/update/HttpResponse.h"

#include <algorithm>
#include <charconv>

namespace RMUP::Process {

namespace {

constexpr std::size_t kMaxHeaderSize = std::size_t{64} * 1024;
constexpr std::size_t kMaxDocumentSize = std::size_t{16} * 1024 * 1024;

constexpr std::string_view kHeaderEnd = "\r\n\r\n";
constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kLengthName = "Content-Length";
constexpr std::string_view kProtocol = "HTTP/";

/// From the start of the name to the value: the name, the colon and one blank.
constexpr std::size_t kLengthValueOffset = 16;

}  // namespace

bool ReadHttpHeader(CByteSource& source, std::string& header) {
    header.clear();
    while (!header.ends_with(kHeaderEnd)) {
        const auto byte = source.Take(1);
        if (byte.empty() || header.size() == kMaxHeaderSize) {
            return false;
        }
        header.push_back(static_cast<char>(byte[0]));
    }
    return true;
}

HttpLength ParseContentLength(std::string_view header, std::size_t& length) {
    const std::size_t name = header.find(kLengthName);
    if (name == std::string_view::npos) {
        return HttpLength::kMissing;
    }
    const std::size_t end = header.find(kLineEnd, name);
    if (end == std::string_view::npos || end < name + kLengthValueOffset) {
        return HttpLength::kInvalid;
    }
    std::string_view value = header.substr(name + kLengthValueOffset, end - name - kLengthValueOffset);
    value.remove_prefix(std::min(value.find_first_not_of(' '), value.size()));
    const auto [next, error] = std::from_chars(value.data(), value.data() + value.size(), length);
    const std::string_view rest(next, static_cast<std::size_t>(value.data() + value.size() - next));
    if (error != std::errc() || rest.find_first_not_of(" \t") != std::string_view::npos || length > kMaxDocumentSize) {
        return HttpLength::kInvalid;
    }
    return HttpLength::kGood;
}

bool ReadHttpBody(CByteSource& source, std::size_t length, std::string& body) {
    body.clear();
    while (body.size() < length) {
        const auto piece = source.Take(length - body.size());
        if (piece.empty()) {
            return false;
        }
        body.append(piece.begin(), piece.end());
    }
    return true;
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
