#pragma once

#include <cstdint>
#include <string>

#include "config/ConfigKey.h"

/// The PC that is registered with the analyzer, or none. Stored and read as one, because no part of it means anything
/// beside the parts of another PC.
struct RegisteredPC {
    std::string address = kNoPCAddress;  ///< dotted
    std::uint16_t tcpPort = 0;           ///< of the connection that it registered on
    std::uint16_t udpPort = 0;
    std::string name;
    char peerID = '0';

    bool operator==(const RegisteredPC&) const = default;
};
