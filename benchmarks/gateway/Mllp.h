#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "CSocket.h"

/// The least that both ends of an HL7 connection can do.
namespace Mllp {

std::string Frame(std::string_view message);

/// Takes one connection after the other and answers each message of it at once, until so many came. Returns the seconds
/// from the first one's end to the last one's answer.
double Receive(const CSocket& listener, std::int64_t count);

/// Sends the frame so many times, each time after the answer to the one before.
void Send(const CSocket& connection, std::string_view frame, std::int64_t count);

}  // namespace Mllp
