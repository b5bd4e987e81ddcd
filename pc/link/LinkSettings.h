#pragma once

#include <boost/asio/ip/address_v4.hpp>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace ZELPC {

inline constexpr std::uint16_t kAnalyzerUDPPort = 9035;
inline constexpr std::uint16_t kAnalyzerTCPPort = 9034;

/// What all links of a process have in common: how this PC presents itself to analyzers.
struct HubSettings {
    /// Where connections and datagrams go out from. Any: the system chooses by its routes. An analyzer knows its PC by
    /// address, so both must go out from the same one.
    boost::asio::ip::address_v4 localAddress;
    /// The port that every analyzer is told to send its notices to. 0: any free one, which is another after a restart.
    std::uint16_t udpPort = 9036;
    std::string name = "zelpc";  ///< at most 10 characters are told
    char peerID = '1';
    /// Where an analyzer that is not at its address is asked for; empty: the broadcast address of every interface.
    std::vector<boost::asio::ip::address_v4> searchAddresses;
};

/// One analyzer, and how to hold it.
struct LinkSettings {
    boost::asio::ip::address_v4 address;  ///< where it is or was; any: search it by its serial number
    std::string serial;                   ///< empty: whichever analyzer is at `address`, and then always that one
    std::string password;                 ///< the administrator's; the protocol carries 8 bytes of it
    bool takeOver = false;                ///< register although another PC is registered
};

}  // namespace ZELPC
