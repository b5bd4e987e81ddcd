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

}  // namespace

std::span<std::uint8_t> CPacketReader::Space() {
    if (broken_) {
        filled_ = 0;
    }
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
    if (const std::size_t from = BeginsAgainAt(); from > 0) {
        broken_ = ++repeats_ > kMostRepeats || !IsSameHeader(from);
        buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(from));
        filled_ = buffer_.size();
        return broken_ ? State::kBroken : State::kMore;
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
    broken_ =
        header_.command == PCCommand{} || header_.version != kAnalyzerVersion || header_.total < Wire::kPCHeaderSize;
    return header_.payload == 0 && !broken_ ? State::kPacket : State::kMore;
}

std::size_t CPacketReader::BeginsAgainAt() const {
    constexpr auto kResult = static_cast<std::uint16_t>(PCCommand::kResult);
    constexpr std::array<std::uint8_t, 2> kBegin = {kResult >> 8, kResult & 0xFF};
    if (header_.command != PCCommand::kResult || header_.payload == 0) {
        return 0;
    }
    // No text of a result holds these two bytes, the second of which is a control character, or ends with the first.
    const auto payload = buffer_.begin() + Wire::kPCHeaderSize;
    if (const auto found = std::find_end(payload, buffer_.end(), kBegin.begin(), kBegin.end());
        found != buffer_.end()) {
        return static_cast<std::size_t>(found - buffer_.begin());
    }
    return buffer_.back() == kBegin[0] ? buffer_.size() - 1 : 0;
}

bool CPacketReader::IsSameHeader(std::size_t offset) const {
    const std::size_t known = std::min<std::size_t>(Wire::kPCHeaderSize, buffer_.size() - offset);
    return std::equal(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(known),
                      buffer_.begin() + static_cast<std::ptrdiff_t>(offset));
}

}  // namespace ZELPC
