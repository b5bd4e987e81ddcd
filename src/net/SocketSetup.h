#pragma once

#include <cstdint>

#include "common/CTaggedLog.h"

namespace RMUP::Net {

/// Sets SO_SNDTIMEO or SO_RCVTIMEO. Returns 0, or -1 with errno.
int SetSocketTimeout(int descriptor, int option, int seconds);

/// The same, told in the log, a failure with these words. A socket without a timeout serves all the same.
void SetSocketTimeout(int descriptor, int option, int seconds, const CTaggedLog& log, const char* failure);

/// Bounds what a TCP connection, or one that the socket accepts, may cost. It ends when nothing was heard of the peer
/// for 150 s: a quiet peer is asked after 60 s and then every 15 s, and data that it does not acknowledge is given up.
/// A few of the largest packets at most wait for a peer that does not read. Returns 0, or -1 with errno.
int SetConnectionLimits(int descriptor);

/// Binds an IPv4 socket to a port of all addresses of the device. Returns 0, or -1 with errno.
int BindToPort(int descriptor, std::uint16_t port);

}  // namespace RMUP::Net
