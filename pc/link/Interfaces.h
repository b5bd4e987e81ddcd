#pragma once

#include <boost/asio/ip/address_v4.hpp>
#include <vector>

namespace ZELPC {

/// One of this PC's addresses on a network that can be asked as a whole.
struct Interface {
    boost::asio::ip::address_v4 address;
    boost::asio::ip::address_v4 broadcast;
};

/// The interfaces that are up and can broadcast. Empty when there is none, or they cannot be listed.
[[nodiscard]] std::vector<Interface> BroadcastInterfaces();

/// The address that this PC sends from to `target`; any when there is no route.
[[nodiscard]] boost::asio::ip::address_v4 LocalAddressTowards(boost::asio::ip::address_v4 target);

}  // namespace ZELPC
