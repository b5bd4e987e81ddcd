#include "net/CPCMsg.h"

#include "common/Bytes.h"
#include "common/Constants.h"
#include "common/PacketDump.h"
#include "net/CNetUtils.h"

namespace {

constexpr std::uint8_t kVersion = 1;
constexpr std::size_t kChecksumSize = 4;

}  // namespace

CPCMsg::CPCMsg() : log_(QENFx::Log::Logger::getLogger()->getLog(kLogName)) {}

std::span<const std::uint8_t> CPCMsg::MakePacket(std::uint16_t command, std::uint8_t tag, std::uint8_t subTag,
                                                 std::span<const std::uint8_t> payload, bool withChecksum) {
    static constexpr char kTag[] = "[CPCMsg::MakePacket]";
    const std::size_t payloadLength = payload.size() + (withChecksum ? kChecksumSize : 0);
    const std::size_t total = kHeaderSize + payloadLength;
    sendBuffer_.clear();
    if (total > kMaxPacketSize) {
        log_->WriteError("%s Packet is too long(%zu/%zu bytes)", kTag, total, kMaxPacketSize);
        return {};
    }

    Bytes::PutBE16(rawHeader_, 0, command);
    rawHeader_[2] = tag;
    rawHeader_[3] = subTag;
    rawHeader_[4] = kVersion;
    Bytes::PutBE16(rawHeader_, 5, static_cast<std::uint16_t>(total << 1));
    payload_.assign(payload.begin(), payload.end());
    payload_.resize(payloadLength);
    SetSequencePacket();

    if (withChecksum) {
        const std::size_t summed = total - kChecksumSize;
        Bytes::PutBE32(sendBuffer_, summed, CNetUtils::ByteSum(std::span(sendBuffer_).first(summed)));
    }
    return sendBuffer_;
}

void CPCMsg::SetSequencePacket() {
    sendBuffer_.assign(rawHeader_.begin(), rawHeader_.end());
    sendBuffer_.insert(sendBuffer_.end(), payload_.begin(), payload_.end());
}

std::span<std::uint8_t> CPCMsg::GetBufferData() {
    if (payload_.empty()) {
        payload_.resize(GetPayloadLength());
    }
    return payload_;
}

std::size_t CPCMsg::GetPayloadLength() const {
    const std::size_t total = Bytes::GetBE16(rawHeader_, 5) >> 1;
    return GetCommand() == 0 || total < kHeaderSize ? 0 : total - kHeaderSize;
}

std::uint16_t CPCMsg::GetCommand() const {
    return Bytes::GetBE16(rawHeader_, 0);
}

void CPCMsg::WritePacketLog() {
    static constexpr char kTag[] = "[CPCMsg::WritePacketLog]";
    if (sendBuffer_.empty()) {
        SetSequencePacket();
    }
    if (sendBuffer_.empty()) {
        log_->WriteError("%s Cannot write packet log", kTag);
        return;
    }
    log_->WriteInfo("%s PC Packet (%d bytes)", kTag, static_cast<int>(sendBuffer_.size()));
    DumpPacket(log_, sendBuffer_);
}
