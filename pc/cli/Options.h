#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// What each sub-command is told to do.
namespace ZELPC {

/// How this PC shows itself to analyzers.
struct NetworkOptions {
    std::string from;           ///< address to send from; empty: as the system routes
    std::uint16_t udpPort = 0;  ///< 0: any free one
    std::string name = "zelpc";
};

/// Where the administrator password comes from; without a file from the environment, or else asked for.
struct PasswordOptions {
    std::string file;
};

/// The gateway that is asked instead of the analyzer, and what it lets in with.
struct ThroughGateway {
    std::string at;         ///< "host:port" of its page; empty: the analyzer is asked
    std::string tokenFile;  ///< empty: the environment's ZELPC_TOKEN, or this user's gateway's own
};

struct ScanOptions {
    NetworkOptions network;
    std::vector<std::string> to;  ///< empty: every interface's network
    double seconds = 3;
    bool json = false;
};

struct InfoOptions {
    NetworkOptions network;
    std::string host;
    bool json = false;
};

struct RegisterOptions {
    NetworkOptions network;
    PasswordOptions password;
    std::string host;
    bool takeOver = false;
    bool json = false;
};

struct UnregisterOptions {
    NetworkOptions network;
    PasswordOptions password;
    std::string host;
    bool force = false;  ///< also when another connection of this PC holds the registration; needs the password
    bool json = false;
};

struct WatchOptions {
    NetworkOptions network;
    ThroughGateway gateway;
    PasswordOptions password;
    std::vector<std::string> hosts;  ///< of a gateway's analyzers the serial numbers, too; none: all of them
    std::string save;                ///< folder; empty: results are shown and not acknowledged
    bool takeOver = false;
    bool json = false;
};

struct PushOptions {
    NetworkOptions network;
    ThroughGateway gateway;
    PasswordOptions password;
    std::string host;
    std::string folder;  ///< for a gateway: the name of one in its push directory
    bool whenAsked = false;
    bool takeOver = false;
    bool json = false;
};

struct DecodeOptions {
    std::string file;  ///< "-": standard input
    bool json = false;
};

}  // namespace ZELPC
