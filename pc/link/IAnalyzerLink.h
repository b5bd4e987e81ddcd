#pragma once

#include <boost/asio/awaitable.hpp>
#include <cstdint>
#include <memory>

#include "link/ILinkEvents.h"
#include "link/LinkSettings.h"
#include "link/PushProgress.h"
#include "packet/DeviceInfo.h"

namespace ZELPC {

class CLinkHub;
class CLinkSession;
class CRelease;

/// One analyzer, held: found, registered with when it is free, kept alive, found again after a change of address or a
/// restart, and connected again with a growing pause (1 s to 60 s). Made and started by CLinkHub::Hold.
///
/// What it does by itself:
/// - It registers after every connection, since only that surely makes the new connection the analyzer's current one.
/// - It sends the sign of life every 3 s from the registered UDP port and takes the link for lost when none of them is
///   answered for 12 s.
/// - After two failed tries at the known address it searches the analyzer by its serial number; an analyzer's own
/// notice
///   of a new address is acknowledged and believed once the analyzer there has told the same serial number.
/// - It never fights over an analyzer: taken over by another PC, or taken from the start and `takeOver` not said, it
///   looks again every 30 s and registers when nobody is registered.
/// - An analyzer that asks for an update when none lies ready is told that there is none.
///
/// Memory: one buffer of a packet's size, at most kMaxPending results, at most 64 packets to be sent. What is no packet
/// of an analyzer ends the connection.
///
/// Any thread may call; everything runs on a strand of its own.
class IAnalyzerLink {
public:
    IAnalyzerLink(const IAnalyzerLink&) = delete;
    IAnalyzerLink& operator=(const IAnalyzerLink&) = delete;
    virtual ~IAnalyzerLink() = default;

    /// What OnStatus told last.
    [[nodiscard]] virtual LinkStatus Status() const = 0;

    /// Asks for items (PCInfoItem). Throws LinkError when there is no connection or no answer within 5 s.
    [[nodiscard]] virtual boost::asio::awaitable<DeviceInfo> GetInfo(std::uint16_t items) = 0;

    /// Ends the registration at the analyzer, then as Stop. Throws LinkError, after stopping, when the analyzer did not
    /// confirm it.
    [[nodiscard]] virtual boost::asio::awaitable<void> Unregister() = 0;

    /// Sends an update and follows it to its end (OnPush tells the same as it goes). One at a time: throws LinkError
    /// while another is under way. A lost connection fails it while images are sent; while the analyzer installs, it is
    /// waited for, since it may restart.
    [[nodiscard]] virtual boost::asio::awaitable<PushProgress> Push(std::shared_ptr<const CRelease> release,
                                                                    PushMethod method) = 0;

    /// Gives the update up and tells the analyzer, between two packets. Nothing without one. Once the analyzer installs
    /// it cannot be called off any more.
    virtual void CancelPush() = 0;

    /// Closes the connection, keeping the registration, so that the analyzer keeps its results for this PC. The last
    /// event is OnStatus with kStopped; afterwards the link lets go of its receiver. Repeating it does nothing.
    virtual void Stop() = 0;

protected:
    IAnalyzerLink() = default;
};

}  // namespace ZELPC
