#include <nlohmann/json.hpp>

#include "cli/CRunner.h"
#include "cli/Commands.h"
#include "cli/ExitStatus.h"
#include "cli/InfoText.h"
#include "cli/Output.h"
#include "cli/Password.h"
#include "link/Visits.h"

namespace ZELPC {

namespace asio = boost::asio;

namespace {

void Done(const std::string& host, const char* event, const char* text, bool asJson) {
    if (asJson) {
        PrintJson({{"event", event}, {"host", host}});
    } else {
        PrintLine(host + ": " + text);
    }
}

int Refused(const std::string& host, const std::string& why) {
    PrintProblem(host + ": " + why);
    return kRefused;
}

}  // namespace

int RunRegister(const RegisterOptions& options) {
    CRunner runner;
    return runner.Run(options.network, [&options](CLinkHub& hub) -> asio::awaitable<int> {
        const asio::ip::address_v4 analyzer = Resolve(options.host);
        const std::string password = ReadPassword(options.password, options.host);
        const RegisterOutcome outcome = co_await RegisterAt(hub, analyzer, password, options.takeOver);
        if (outcome.other) {
            co_return Refused(options.host, PCText(*outcome.other) + " is registered; --take-over replaces it");
        }
        if (outcome.refusal != Refusal::kNone) {
            co_return Refused(options.host, TextOf(outcome.refusal));
        }
        Done(options.host, "registered",
             "this PC is registered; results come to it while `zelpc watch` or a gateway runs", options.json);
        co_return kDone;
    });
}

int RunUnregister(const UnregisterOptions& options) {
    CRunner runner;
    return runner.Run(options.network, [&options](CLinkHub& hub) -> asio::awaitable<int> {
        const asio::ip::address_v4 analyzer = Resolve(options.host);
        std::optional<std::string> password;
        if (options.force) {
            password = ReadPassword(options.password, options.host);
        }
        const Unregistered result = co_await UnregisterAt(hub, analyzer, password);
        switch (result.outcome) {
            case UnregisterOutcome::kDone:
                Done(options.host, "unregistered", "this PC is not registered any more", options.json);
                co_return kDone;
            case UnregisterOutcome::kNotRegistered:
                co_return Refused(options.host, result.other ? "not this PC is registered but " + PCText(*result.other)
                                                             : "no PC is registered");
            case UnregisterOutcome::kHeldElsewhere:
                break;
        }
        co_return Refused(options.host, result.refusal != Refusal::kNone
                                            ? TextOf(result.refusal)
                                            : "another program of this PC holds the registration; stop it or use "
                                              "--force");
    });
}

}  // namespace ZELPC
