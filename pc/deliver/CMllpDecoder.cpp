#include "deliver/CMllpDecoder.h"

namespace ZELPC {

namespace {

constexpr char kBegin = '\x0B';
constexpr std::string_view kEnd = "\x1C\r";

}  // namespace

bool CMllpDecoder::Put(std::string_view bytes) {
    buffer_.append(bytes);
    SkipNoise();
    return noise_ <= kLongest && (buffer_.size() <= kLongest || buffer_.find(kEnd) <= kLongest);
}

std::optional<std::string> CMllpDecoder::Next() {
    const std::size_t end = buffer_.find(kEnd);
    if (end == buffer_.npos) {
        return std::nullopt;
    }
    std::string message = buffer_.substr(1, end - 1);
    buffer_.erase(0, end + kEnd.size());
    noise_ = 0;
    SkipNoise();
    return message;
}

/// What is left begins with a frame, or is empty.
void CMllpDecoder::SkipNoise() {
    const std::size_t begin = std::min(buffer_.find(kBegin), buffer_.size());
    noise_ += begin;
    buffer_.erase(0, begin);
}

void CMllpDecoder::Frame(std::string_view message, std::string& frame) {
    frame = kBegin;
    frame += message;
    frame += kEnd;
}

}  // namespace ZELPC
