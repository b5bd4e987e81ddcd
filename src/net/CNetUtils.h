#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <span>
#include <string>

#include "platform/Log.h"

/// The device's own address, and helpers for what the protocols carry.
class CNetUtils {
public:
    CNetUtils();

    /// The dotted IPv4 address of the default-route interface. Without a default route or an address on it, the address
    /// in the analyzer's system settings; "0.0.0.0" when there is no socket to ask with.
    std::string GetMyIPAddr() const;

    /// The address that a PC is told as the device's own: the USB link's for a PC on that link.
    std::string GetMyIPAddrFor(const std::string& pcAddress) const;

    /// The sum of the bytes, modulo 2^32. Not used by the service itself.
    static std::uint32_t ByteSum(std::span<const std::uint8_t> data);

    /// A dotted IPv4 address as a number in host byte order; 0 for any other text.
    static std::uint32_t AddressNumber(const std::string& dotted);

    /// Address and port (host byte order) as a socket address; 0.0.0.0 for a text that is no dotted address.
    static sockaddr_in SocketAddress(const std::string& dotted, std::uint16_t port);

    static std::string DottedAddress(const in_addr& address);

private:
    std::string DefaultRouteInterface() const;
    std::string ConfiguredAddress() const;

    QENFx::Log::FileLog* log_;
};
