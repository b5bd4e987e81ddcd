#include "common/PacketDump.h"

#include <algorithm>
#include <cstddef>

void WritePacket(QENFx::Log::FileLog* log, const char* tag, const char* protocol,
                 std::span<const std::uint8_t> packet) {
    if (packet.empty()) {
        // Only if there were no memory; a packet has a header at least.
        log->WriteError("%s Cannot write packet log", tag);
        return;
    }
    log->WriteInfo("%s %s Packet (%d bytes)", tag, protocol, static_cast<int>(packet.size()));

    constexpr std::size_t kRowBytes = 24;
    constexpr char kDigits[] = "0123456789ABCDEF";
    while (!packet.empty()) {
        const auto row = packet.first(std::min(packet.size(), kRowBytes));
        packet = packet.subspan(row.size());

        char text[78];  // 24 bytes of three characters, five group gaps, the terminator
        std::size_t length = 0;
        for (std::size_t i = 0; i < row.size(); ++i) {
            text[length++] = kDigits[row[i] >> 4];
            text[length++] = kDigits[row[i] & 0x0F];
            text[length++] = ' ';
            const std::size_t done = i + 1;
            if (done % 4 == 0 && done != kRowBytes) {
                text[length++] = ' ';
            }
        }
        text[length] = '\0';
        log->WriteInfo("%s", text);
    }
}
