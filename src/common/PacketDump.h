#pragma once

#include <cstdint>
#include <span>

#include "platform/Log.h"

/// Writes a packet to the log: under the tag a line with its protocol ("PC" or "UDS") and its size, and then its bytes
/// as hexadecimal rows of 24 in groups of four, one info line a row. From any thread; the lines of two threads mix.
void WritePacket(QENFx::Log::FileLog* log, const char* tag, const char* protocol, std::span<const std::uint8_t> packet);
