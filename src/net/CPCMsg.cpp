#include "net/CPCMsg.h"

#include <algorithm>

#include "common/CTaggedLog.h"
#include "common/Constants.h"
#include "common/PacketDump.h"

CPCMsg::CPCMsg() : log_(QENFx::Log::Logger::getLogger()->getLog(kLogName)) {}

std::span<const std::uint8_t> CPCMsg::MakePacket(PCCommand command, std::uint8_t tag, std::uint8_t subTag,
                                                 std::span<const std::uint8_t> payload, bool withChecksum) {
    const CTaggedLog log(log_, "[CPCMsg::MakePacket]");
    const std::size_t total = Wire::PCPacketSize(payload.size(), withChecksum);
    sendBuffer_.clear();
    if (total > kMaxPacketSize) {
        log.WriteError("Packet is too long(%zu/%zu bytes)", total, kMaxPacketSize);
        return {};
    }
    Wire::BuildPCPacket(sendBuffer_, {.command = command, .tag = tag, .subTag = subTag, .checksum = withChecksum},
                        payload);
    const auto headerEnd = sendBuffer_.begin() + static_cast<std::ptrdiff_t>(kHeaderSize);
    std::copy(sendBuffer_.begin(), headerEnd, rawHeader_.begin());
    payload_.assign(headerEnd, sendBuffer_.end());
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

std::size_t CPCMsg::GetAnnouncedSize() const {
    const Wire::PCHeader header = Wire::ParsePCHeader(rawHeader_);
    return header.command == PCCommand{} ? kHeaderSize : header.total;
}

std::size_t CPCMsg::GetPayloadLength() const {
    return Wire::ParsePCHeader(rawHeader_).payload;
}

PCCommand CPCMsg::GetCommand() const {
    return Wire::ParsePCHeader(rawHeader_).command;
}

void CPCMsg::WritePacketLog() {
    if (sendBuffer_.empty()) {
        SetSequencePacket();
    }
    WritePacket(log_, "[CPCMsg::WritePacketLog]", "PC", sendBuffer_);
}
