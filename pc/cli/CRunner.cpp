#include "cli/CRunner.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/ip/udp.hpp>
#include <boost/asio/signal_set.hpp>

#include "cli/ExitStatus.h"
#include "cli/Output.h"
#include "cli/Password.h"
#include "link/CRelease.h"
#include "link/LinkError.h"

namespace ZELPC {

namespace asio = boost::asio;

namespace {

/// The status that an exception means, after saying it.
int StatusOf(const std::exception_ptr& thrown) {
    try {
        std::rethrow_exception(thrown);
    } catch (const CalledOff&) {
        return kInterrupted;
    } catch (const LinkError& error) {
        PrintProblem(error.what());
        return kUnreachable;
    } catch (const ReleaseError& error) {
        PrintProblem(error.what());
        return kUnfit;
    } catch (const PasswordError& error) {
        PrintProblem(error.what());
        return kUsage;
    } catch (const std::exception& error) {
        PrintProblem(error.what());
        return kFailed;
    }
}

}  // namespace

int CRunner::Run(const NetworkOptions& network, const Work& work) {
    int status = kInterrupted;
    try {
        HubSettings settings;
        settings.localAddress = network.from.empty() ? asio::ip::address_v4() : Resolve(network.from);
        settings.udpPort = network.udpPort;
        settings.name = network.name;
        CLinkHub hub(context_, std::move(settings));

        asio::signal_set signals(context_, SIGINT, SIGTERM);
        std::function<void(boost::system::error_code, int)> interrupted = [&](boost::system::error_code error, int) {
            if (error) {
                return;
            }
            if (!interrupt_) {
                context_.stop();
                return;
            }
            std::exchange(interrupt_, nullptr)();
            signals.async_wait(interrupted);
        };
        signals.async_wait(interrupted);
        asio::co_spawn(
            context_, [&] { return work(hub); },
            [&](const std::exception_ptr& thrown, int result) {
                status = thrown ? StatusOf(thrown) : result;
                context_.stop();
            });
        context_.run();
    } catch (...) {
        return StatusOf(std::current_exception());
    }
    return status;
}

asio::ip::address_v4 Resolve(const std::string& host) {
    boost::system::error_code error;
    const auto address = asio::ip::make_address_v4(host, error);
    if (!error) {
        return address;
    }
    asio::io_context context;
    asio::ip::udp::resolver resolver(context);
    const auto found = resolver.resolve(asio::ip::udp::v4(), host, "", error);
    if (error || found.empty()) {
        throw LinkError("\"" + host + "\" is neither an address nor a host that is known");
    }
    return found.begin()->endpoint().address().to_v4();
}

}  // namespace ZELPC
