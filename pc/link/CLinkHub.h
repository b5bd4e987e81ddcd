#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/asio/io_context.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "link/IAnalyzerLink.h"
#include "link/ILinkEvents.h"
#include "link/LinkSettings.h"
#include "packet/ScanAnswer.h"

namespace ZELPC {

class CDatagramPort;

/// What all links of a process share: the io_context, which any number of threads may run, and the one UDP socket that
/// every sign of life goes out from and every scan answer and notice comes in to.
///
/// Any thread may call. Memory: a datagram of a stranger is looked at and forgotten.
class CLinkHub {
public:
    /// Opens the socket. Throws LinkError when address or port cannot be had.
    CLinkHub(boost::asio::io_context& context, HubSettings settings);
    CLinkHub(const CLinkHub&) = delete;
    CLinkHub& operator=(const CLinkHub&) = delete;
    /// Stop() was called and the context has run out of work before this.
    ~CLinkHub();

    /// Asks who is there, three times within `duration`, and tells each analyzer that answers, once, as it answers; one
    /// whose answer changes, again. `found` is called on a strand. Without targets every interface's broadcast address
    /// is asked. Throws LinkError when nothing could be sent.
    [[nodiscard]] boost::asio::awaitable<void> Scan(std::vector<boost::asio::ip::address_v4> targets,
                                                    std::chrono::milliseconds duration,
                                                    std::function<void(const ScanAnswer&)> found);

    /// Holds an analyzer from now on. The link lives until it has stopped, whoever else holds it.
    [[nodiscard]] std::shared_ptr<IAnalyzerLink> Hold(LinkSettings settings, std::shared_ptr<ILinkEvents> events);

    /// Stops every link and closes the socket. Repeating it does nothing.
    void Stop();

    [[nodiscard]] const HubSettings& Settings() const;

    /// For the parts of this layer.
    [[nodiscard]] const std::shared_ptr<CDatagramPort>& Port() const { return port_; }

private:
    const std::shared_ptr<CDatagramPort> port_;
    std::mutex mutex_;
    std::vector<std::weak_ptr<IAnalyzerLink>> links_;
};

}  // namespace ZELPC
