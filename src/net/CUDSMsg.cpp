#include "net/CUDSMsg.h"

#include "common/CTaggedLog.h"
#include "common/Constants.h"
#include "common/PacketDump.h"
#include "platform/Crc16.h"
#include "wire/Bytes.h"

using RMUP::Net::UDSMessageId;

namespace {

constexpr std::uint8_t kStartByte = 0x02;
constexpr std::uint8_t kAddressByte = 0xB2;
constexpr std::uint8_t kEndByte = 0x03;

}  // namespace

CUDSMsg::CUDSMsg() : log_(QENFx::Log::Logger::getLogger()->getLog(kLogName)) {}

std::span<const std::uint8_t> CUDSMsg::GetSendPacket(UDSMessageId id, std::span<const std::uint8_t> payload) {
    const CTaggedLog log(log_, "[CUDSMsg::GetSendPacket]");
    header_[0] = kStartByte;
    header_[1] = kAddressByte;
    Bytes::PutLE16(header_, 2, static_cast<std::uint16_t>(id));
    Bytes::PutLE16(header_, 4, static_cast<std::uint16_t>(payload.size()));
    payload_.assign(payload.begin(), payload.end());
    trailer_ = {0, 0, kEndByte};
    SetSequencePacket();
    Bytes::PutLE16(trailer_, 0, ComputeCRC());
    SetSequencePacket();
    log.WriteInfo("Making packet complete (%d bytes)", static_cast<int>(sendBuffer_.size()));
    return sendBuffer_;
}

void CUDSMsg::SetSequencePacket() {
    sendBuffer_.assign(header_.begin(), header_.end());
    sendBuffer_.insert(sendBuffer_.end(), payload_.begin(), payload_.end());
    sendBuffer_.insert(sendBuffer_.end(), trailer_.begin(), trailer_.end());
}

std::span<std::uint8_t> CUDSMsg::GetBufferData() {
    if (payload_.empty()) {
        payload_.resize(GetPayloadLength());
    }
    return payload_;
}

bool CUDSMsg::IsValidCRC() {
    const CTaggedLog log(log_, "[CUDSMsg::IsValidCRC]");
    SetSequencePacket();
    if (payload_.size() != GetPayloadLength()) {
        log.WriteError("Cannot make packet");
        return false;
    }
    return Bytes::GetLE16(trailer_, 0) == ComputeCRC();
}

std::uint16_t CUDSMsg::ComputeCRC() const {
    const auto covered = std::span(sendBuffer_).subspan(1, sendBuffer_.size() - 1 - kTrailerSize);
    return QENFx::Common::Convertor::CRC16::crc16(covered.data(), static_cast<unsigned>(covered.size()));
}

UDSMessageId CUDSMsg::GetMessageId() const {
    return UDSMessageId{Bytes::GetLE16(header_, 2)};
}

std::size_t CUDSMsg::GetPayloadLength() const {
    return Bytes::GetLE16(header_, 4);
}

void CUDSMsg::WritePacketLog() {
    if (sendBuffer_.empty()) {
        SetSequencePacket();
    }
    WritePacket(log_, "[CUDSMsg::WritePacketLog]", "UDS", sendBuffer_);
}
