#include "packet/Capture.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <span>

#include "packet/CFlows.h"
#include "wire/Bytes.h"

namespace ZELPC {

namespace {

using Field = std::span<const std::uint8_t>;

constexpr char kCutShort[] = "the capture ends within a packet";

Field BytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

/// A number of the file's own byte order.
std::uint32_t Number(Field file, std::size_t offset, bool bigEndian) {
    return bigEndian ? Bytes::GetBE32(file, offset) : Bytes::GetLE32(file, offset);
}

Capture ReadPcap(Field file, bool bigEndian) {
    constexpr std::size_t kFileHeader = 24;
    constexpr std::size_t kFrameHeader = 16;
    Capture capture;
    CFlows flows(capture);
    if (file.size() < kFileHeader) {
        return {{}, kCutShort};
    }
    const std::uint32_t linkType = Number(file, 20, bigEndian) & 0xFFFF;
    file = file.subspan(kFileHeader);
    while (!file.empty()) {
        const std::size_t size = file.size() < kFrameHeader ? 0 : Number(file, 8, bigEndian);
        if (file.size() < kFrameHeader || file.size() - kFrameHeader < size) {
            capture.problem = kCutShort;
            break;
        }
        flows.TakeFrame(linkType, file.subspan(kFrameHeader, size));
        file = file.subspan(kFrameHeader + size);
    }
    return capture;
}

constexpr std::uint32_t kSectionBlock = 0x0A0D0D0A;
constexpr std::uint32_t kByteOrderMark = 0x1A2B3C4D;

Capture ReadPcapNg(Field file) {
    constexpr std::uint32_t kInterfaceBlock = 1;
    constexpr std::uint32_t kPacketBlock = 6;
    constexpr std::size_t kLeastBlock = 12;
    Capture capture;
    CFlows flows(capture);
    std::vector<std::uint32_t> linkTypes;
    bool bigEndian = false;
    while (!file.empty()) {
        const bool whole = file.size() >= kLeastBlock;
        if (whole && Number(file, 0, false) == kSectionBlock) {
            bigEndian = Bytes::GetBE32(file, 8) == kByteOrderMark;
            linkTypes.clear();
        }
        const std::size_t size = whole ? Number(file, 4, bigEndian) : 0;
        if (size < kLeastBlock || size > file.size()) {
            capture.problem = kCutShort;
            break;
        }
        const std::uint32_t kind = Number(file, 0, bigEndian);
        const Field body = file.subspan(8, size - kLeastBlock);
        if (kind == kInterfaceBlock && body.size() >= 2) {
            linkTypes.push_back(bigEndian ? Bytes::GetBE16(body, 0) : Bytes::GetLE16(body, 0));
        } else if (kind == kPacketBlock && body.size() >= 20) {
            const std::uint32_t interface = Number(body, 0, bigEndian);
            const std::size_t length = Number(body, 12, bigEndian);
            if (interface < linkTypes.size() && length <= body.size() - 20) {
                flows.TakeFrame(linkTypes[interface], body.subspan(20, length));
            }
        }
        file = file.subspan(size);
    }
    return capture;
}

Capture ReadPackets(Field bytes) {
    Capture capture;
    while (!bytes.empty()) {
        const bool whole = bytes.size() >= Wire::kPCHeaderSize;
        const Wire::PCHeader header =
            whole ? Wire::ParsePCHeader(bytes.first<Wire::kPCHeaderSize>()) : Wire::PCHeader();
        if (!whole || header.total < Wire::kPCHeaderSize || header.total > bytes.size()) {
            capture.problem = "what is left, " + std::to_string(bytes.size()) + " bytes, is no whole packet";
            break;
        }
        const Field payload = bytes.first(header.total).subspan(Wire::kPCHeaderSize);
        capture.packets.push_back({{}, {}, header, Buffer(payload.begin(), payload.end())});
        bytes = bytes.subspan(header.total);
    }
    return capture;
}

int DigitOf(char c) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    const char lower = c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c;
    const std::size_t digit = kDigits.find(lower);
    return digit == std::string_view::npos ? -1 : static_cast<int>(digit);
}

/// The bytes whose digits a line consists of; none when there is anything else on it.
std::optional<Buffer> HexLine(std::string_view line) {
    Buffer bytes;
    int high = -1;
    for (const char c : line) {
        const int digit = DigitOf(c);
        if (digit < 0) {
            if ((c != ' ' && c != '\t' && c != '\r') || high >= 0) {
                return std::nullopt;
            }
        } else if (high < 0) {
            high = digit;
        } else {
            bytes.push_back(static_cast<std::uint8_t>(high * 16 + digit));
            high = -1;
        }
    }
    return high < 0 ? std::optional(bytes) : std::nullopt;
}

/// The bytes of hexadecimal digits, packet by packet where a log tells them apart; none when the text is something
/// else.
std::vector<Buffer> HexText(std::string_view text) {
    constexpr std::string_view kLevel = " INFO ";
    std::vector<Buffer> blocks(1);
    bool ours = true;
    while (!text.empty()) {
        std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        const std::size_t level = line.find(kLevel);
        const bool logged = level != std::string_view::npos || line.find("[RMUP]") != std::string_view::npos;
        line.remove_prefix(level == std::string_view::npos ? 0 : level + kLevel.size());
        if (const auto found = HexLine(line)) {
            blocks.back().insert(blocks.back().end(), found->begin(), ours ? found->end() : found->begin());
        } else if (!logged && !line.empty()) {
            return {};
        } else if (line.find(" Packet (") != std::string_view::npos) {
            // The log holds those of the local socket too.
            ours = line.find("PC Packet (") != std::string_view::npos;
            blocks.emplace_back();
        }
    }
    std::erase_if(blocks, [](const Buffer& block) { return block.empty(); });
    return blocks;
}

}  // namespace

Capture ReadCapture(std::string_view file) {
    const Field bytes = BytesOf(file);
    if (bytes.size() >= 4) {
        const std::uint32_t magic = Bytes::GetBE32(bytes, 0);
        if (magic == 0xA1B2C3D4 || magic == 0xA1B23C4D) {
            return ReadPcap(bytes, true);
        }
        if (magic == 0xD4C3B2A1 || magic == 0x4D3CB2A1) {
            return ReadPcap(bytes, false);
        }
        if (magic == kSectionBlock) {
            return ReadPcapNg(bytes);
        }
    }
    Capture capture;
    const std::vector<Buffer> blocks = HexText(file);
    if (blocks.empty()) {
        capture = ReadPackets(bytes);
    }
    for (const Buffer& block : blocks) {
        Capture part = ReadPackets(block);
        std::ranges::move(part.packets, std::back_inserter(capture.packets));
        capture.problem = part.problem.empty() ? capture.problem : part.problem;
    }
    if (capture.packets.empty() && capture.problem.empty()) {
        capture.problem = "there is nothing in the file";
    }
    return capture;
}

}  // namespace ZELPC
