#pragma once

#include <boost/asio/ip/address_v4.hpp>

#include "packet/ScanAnswer.h"

namespace ZELPC {

/// Who is told by the datagram port what concerns one analyzer. The calls come on the port's strand; none may wait.
class IDatagramReceiver {
public:
    virtual ~IDatagramReceiver() = default;

    /// The analyzer answered a scan, anybody's, from this address.
    virtual void OnScanAnswer(const ScanAnswer& answer, boost::asio::ip::address_v4 from) = 0;

    /// The analyzer answered a sign of life.
    virtual void OnAlive() = 0;

    /// An analyzer, maybe this one, says that another PC has registered. Datagrams are easily forged: look before you
    /// believe it.
    virtual void OnOtherPC() = 0;
};

}  // namespace ZELPC
