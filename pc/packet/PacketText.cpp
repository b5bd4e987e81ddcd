#include "packet/PacketText.h"

#include <algorithm>
#include <array>

#include "packet/DeviceInfo.h"
#include "packet/Requests.h"
#include "packet/ScanAnswer.h"
#include "wire/Bytes.h"
#include "wire/PCCommand.h"
#include "wire/UpdateFormat.h"

namespace ZELPC {

namespace {

using Payload = std::span<const std::uint8_t>;
using Lines = std::vector<std::string>;

std::string Hex(std::uint32_t number, int digits) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text = "0x";
    for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4) {
        text += kDigits[(number >> shift) & 0xF];
    }
    return text;
}

std::string Quoted(const std::string& text) {
    return '"' + text + '"';
}

std::string Of(Payload payload, std::size_t offset, std::size_t size) {
    return Quoted(ProtocolText(payload.subspan(offset, size)));
}

std::string Endpoint(Payload payload, std::size_t address, std::size_t port) {
    return DottedAddress(Bytes::GetBE32(payload, address)) + " port " + std::to_string(Bytes::GetBE16(payload, port));
}

std::string PCText(const OtherPC& pc) {
    return pc.address == 0 ? "none" : DottedAddress(pc.address) + " " + Quoted(pc.name);
}

void Scan(Payload payload, Lines& lines) {
    lines.push_back("answer to " + Endpoint(payload, 2, 0));
}

void ScanAnswered(Payload payload, Lines& lines) {
    lines.push_back("serial number " + Of(payload, 0, 15) + ", model " + Of(payload, 60, 8));
    lines.push_back("address " + Endpoint(payload, 18, 16));
    lines.emplace_back((payload[15] & 1) != 0 ? "in use" : "free");
    lines.push_back("registered PC: " + PCText({Bytes::GetBE32(payload, 32), ProtocolText(payload.subspan(36, 10))}));
}

void Register(Payload payload, Lines& lines) {
    // The password is no one else's business.
    lines.push_back("PC " + Endpoint(payload, 10, 8) + " (UDP), name " + Of(payload, 14, 10));
    lines.push_back("peer ID " + Of(payload, 24, 1));
}

void Registered(Payload payload, Lines& lines) {
    lines.push_back("peer ID " + Of(payload, 0, 1));
}

void Changed(Payload payload, Lines& lines) {
    const std::uint16_t mask = Bytes::GetBE16(payload, 0);
    if (mask == kItemDeviceAddress && payload.size() >= 6) {
        lines.push_back("the analyzer's address is now " + DottedAddress(Bytes::GetBE32(payload, 2)));
    } else if (mask == kItemPCChanged && payload.size() >= 16) {
        lines.push_back("another PC has registered: " +
                        PCText({Bytes::GetBE32(payload, 2), ProtocolText(payload.subspan(6, 10))}));
    } else {
        lines.push_back("items " + Hex(mask, 4));
    }
}

std::string ImageNames(std::uint32_t bits) {
    std::string text;
    for (const ImageId image : Wire::kImagesOfPC) {
        const Wire::ImageRow& row = Wire::RowOf(image);
        if ((bits & row.offerBit) != 0) {
            text += (text.empty() ? "" : ", ") + std::string(row.name);
        }
    }
    return text.empty() ? "nothing" : text;
}

void Offered(Payload payload, Lines& lines) {
    lines.push_back("images: " + ImageNames(payload[0]));
}

void ImageAsked(Payload payload, Lines& lines) {
    lines.push_back("image: " + ImageNames(Bytes::GetLE32(payload, 0)));
}

void ImagePiece(Payload payload, Lines& lines) {
    lines.push_back(std::to_string(payload.size()) + " bytes of an image");
    if (payload.size() >= Wire::kUpdateHeaderSize) {
        const auto header = Wire::ParseUpdateHeader(payload.first<Wire::kUpdateHeaderSize>());
        for (const Wire::Model model : {Wire::Model::kHuman, Wire::Model::kVeterinary}) {
            for (const Wire::ImageRow& row : Wire::kImages) {
                if (header.magic == row.magic.Of(model)) {
                    lines.push_back(std::string("begins ") + row.fileName.Of(model) + ", version " +
                                    Of(payload, 8, Wire::kVersionSize) + ", " + std::to_string(header.size) +
                                    " bytes of data");
                }
            }
        }
    }
}

void Asked(Payload payload, Lines& lines) {
    const std::uint16_t mask = Bytes::GetBE16(payload, 0);
    constexpr std::uint16_t kUpdateVersions = 0x03E0;
    lines.push_back(mask == kUpdateVersions ? "the analyzer asks which versions the PC has" : "items " + Hex(mask, 4));
}

void Told(Payload payload, Lines& lines) {
    lines.push_back("items " + Hex(Bytes::GetBE16(payload, 0), 4));
    const auto info = ParseDeviceInfo(payload);
    if (!info) {
        lines.emplace_back("the items do not fit the payload");
        return;
    }
    const auto add = [&lines](const char* name, const std::optional<std::string>& value) {
        if (value) {
            lines.push_back(name + Quoted(*value));
        }
    };
    if (info->activity) {
        lines.push_back("activity: " + ActivityText(*info->activity));
    }
    if (info->address) {
        lines.push_back("address " + DottedAddress(*info->address));
    }
    add("serial number ", info->serial);
    add("SYS version ", info->sysVersion);
    add("APP version ", info->appVersion);
    add("DSP version ", info->dspVersion);
    add("XML version ", info->xmlVersion);
    if (info->registered) {
        lines.push_back("registered PC: " + (info->registrant ? PCText(*info->registrant) : "the one that asks"));
    }
}

void Error(Payload payload, Lines& lines) {
    const std::uint16_t code = Bytes::GetBE16(payload, 0);
    lines.push_back("code " + Hex(code, 4) + ": " + DescribeError(code));
}

void Result(Payload payload, Lines& lines) {
    lines.push_back(payload.empty() ? "no text: the acknowledgement of a result"
                                    : "a result of " + std::to_string(payload.size()) + " bytes");
}

void Nothing(Payload, Lines&) {}

struct Kind {
    PCCommand command;
    const char* name;
    std::size_t least;  ///< bytes of payload that `describe` needs
    void (*describe)(Payload, Lines&);
};

constexpr std::array<Kind, 17> kKinds = {{
    {PCCommand::kScanDevice, "scan", 10, Scan},
    {PCCommand::kScanDeviceResponse, "answer to a scan", 68, ScanAnswered},
    {PCCommand::kRegisterDevice, "register", 25, Register},
    {PCCommand::kRegisterDeviceResponse, "registered", 1, Registered},
    {PCCommand::kUnregisterDevice, "unregister", 0, Nothing},
    {PCCommand::kUnregisterDeviceResponse, "unregistered", 0, Nothing},
    {PCCommand::kDeviceInfoChange, "sign of life, or notice of a change", 2, Changed},
    {PCCommand::kDeviceInfoChangeAck, "acknowledgement of a sign of life or notice", 0, Nothing},
    {PCCommand::kUpdateStart, "offer of an update", 1, Offered},
    {PCCommand::kUpdateAccept, "the update may begin", 0, Nothing},
    {PCCommand::kImageRequest, "request for an image", 6, ImageAsked},
    {PCCommand::kImageData, "image data", 0, ImagePiece},
    {PCCommand::kImageReceived, "image received", 0, Nothing},
    {PCCommand::kGetInfo, "request for information", 2, Asked},
    {PCCommand::kInfo, "information", 2, Told},
    {PCCommand::kErrorNotice, "error notice", 2, Error},
    {PCCommand::kResult, "result", 0, Result},
}};

}  // namespace

std::string DescribeError(std::uint16_t code) {
    if (code >= kFirstCancel && code <= kLastCancel) {
        return "the PC gives the update up";
    }
    switch (PCError{code}) {
        case PCError::kWrongPassword:
            return "the administrator password is not correct";
        case PCError::kBusyAnalyzing:
            return "the analyzer is measuring";
        case PCError::kBusyUpdating:
            return "the analyzer is updating its software";
        case PCError::kUpdateImpossible:
            return "the update or this image is not taken";
        default:
            return "unknown";
    }
}

Lines DescribePacket(const Wire::PCHeader& header, Payload payload) {
    const auto kind = std::ranges::find(kKinds, header.command, &Kind::command);
    Lines lines;
    lines.push_back(Hex(static_cast<std::uint16_t>(header.command), 4) + " " +
                    (kind == kKinds.end() ? "unknown command" : kind->name) + ", tag " + std::to_string(header.tag) +
                    ", sub-tag " + Hex(header.subTag, 2) + ", " + std::to_string(header.total) + " bytes" +
                    (header.flag ? ", more follow" : ""));
    if (header.version != 1) {
        lines.push_back("version " + std::to_string(header.version) + ", not 1");
    }
    if (payload.size() != header.payload) {
        lines.push_back("the header announces " + std::to_string(header.payload) + " bytes after it, but there are " +
                        std::to_string(payload.size()));
    }
    if (kind != kKinds.end() && payload.size() >= kind->least) {
        kind->describe(payload, lines);
    } else if (kind != kKinds.end()) {
        lines.emplace_back("too short for what it is");
    }
    return lines;
}

}  // namespace ZELPC
