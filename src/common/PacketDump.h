#pragma once

#include <cstdint>
#include <span>

#include "platform/Log.h"

/// Writes a packet to the log as hexadecimal rows of 24 bytes in groups of four, one info line a row.
void DumpPacket(QENFx::Log::FileLog* log, std::span<const std::uint8_t> packet);
