#include "packet/CPacketReader.h"

#include <algorithm>
#include <array>
#include <utility>

#include "wire/PCCommand.h"

namespace ZELPC {

namespace {

constexpr std::uint8_t kAnalyzerVersion = 1;

/// A send that is cut short more often than this within one packet is somebody's game.
constexpr int kMostRepeats = 16;

/// The length of the longest beginning of the bytes that is also their end, short of all of them.
std::size_t LongestBorder(std::span<const std::uint8_t> bytes) {
    std::vector<std::uint16_t> border(bytes.size());
    std::size_t length = 0;
    for (std::size_t i = 1; i < bytes.size(); ++i) {
        while (length > 0 && bytes[i] != bytes[length]) {
            length = border[length - 1];
        }
        if (bytes[i] == bytes[length]) {
            ++length;
        }
        border[i] = static_cast<std::uint16_t>(length);
    }
    return length;
}

}  // namespace

std::span<std::uint8_t> CPacketReader::Space() {
    buffer_.resize(filled_ < Wire::kPCHeaderSize ? Wire::kPCHeaderSize : header_.total);
    return std::span(buffer_).subspan(filled_);
}

CPacketReader::State CPacketReader::Take(std::size_t count, Packet& packet) {
    filled_ = std::min(filled_ + count, buffer_.size());
    if (broken_) {
        return State::kBroken;
    }
    if (filled_ < buffer_.size()) {
        return State::kMore;
    }
    if (buffer_.size() == Wire::kPCHeaderSize && TakeHeader() != State::kPacket) {
        return broken_ ? State::kBroken : State::kMore;
    }
    if (const std::size_t from = RepeatedFrom(); from > 0) {
        if (++repeats_ > kMostRepeats) {
            broken_ = true;
            return State::kBroken;
        }
        buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(from));
        filled_ = buffer_.size();
        return State::kMore;
    }
    packet.header = header_;
    buffer_.erase(buffer_.begin(), buffer_.begin() + Wire::kPCHeaderSize);
    packet.payload = std::exchange(buffer_, {});
    filled_ = 0;
    repeats_ = 0;
    return State::kPacket;
}

CPacketReader::State CPacketReader::TakeHeader() {
    header_ = Wire::ParsePCHeader(std::span(buffer_).first<Wire::kPCHeaderSize>());
    broken_ = header_.command == 0 || header_.version != kAnalyzerVersion || header_.total < Wire::kPCHeaderSize;
    return header_.payload == 0 && !broken_ ? State::kPacket : State::kMore;
}

std::size_t CPacketReader::RepeatedFrom() const {
    // A result ends with a carriage return and holds no control character before: none that is whole ends as it begins.
    constexpr std::array<std::uint8_t, 2> kBegins = {kResult >> 8, kResult & 0xFF};
    if (header_.command != kResult || header_.payload == 0) {
        return 0;
    }
    const std::span<const std::uint8_t> payload = std::span(buffer_).subspan(Wire::kPCHeaderSize);
    if (payload.back() != kBegins[0] && std::ranges::search(payload, kBegins).empty()) {
        return 0;
    }
    const std::size_t border = LongestBorder(buffer_);
    return border == 0 ? 0 : buffer_.size() - border;
}

}  // namespace ZELPC
