#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/asio/io_context.hpp>
#include <functional>

#include "cli/Options.h"
#include "link/CLinkHub.h"

namespace ZELPC {

/// What a sub-command runs in: an event loop on this thread, a hub, and Ctrl-C.
class CRunner {
public:
    using Work = std::function<boost::asio::awaitable<int>(CLinkHub&)>;

    /// Runs the work to its end and returns its status; an exception is said on standard error and becomes one. Ctrl-C
    /// and SIGTERM end it at once with kInterrupted, or call what OnInterrupt has set.
    [[nodiscard]] int Run(const NetworkOptions& network, const Work& work);

    /// What Ctrl-C does from now on; the work then ends by itself. A second Ctrl-C ends it at once.
    void OnInterrupt(std::function<void()> interrupt) { interrupt_ = std::move(interrupt); }

    boost::asio::io_context& Context() { return context_; }

private:
    boost::asio::io_context context_{1};
    std::function<void()> interrupt_;
};

/// An address or a name of a host, as an address. Throws LinkError.
[[nodiscard]] boost::asio::ip::address_v4 Resolve(const std::string& host);

}  // namespace ZELPC
