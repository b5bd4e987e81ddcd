#include <algorithm>
#include <map>

#include "cli/CApiClient.h"
#include "cli/CInterrupt.h"
#include "cli/ExitStatus.h"
#include "cli/GatewayWork.h"
#include "cli/Output.h"
#include "cli/ResultText.h"

namespace ZELPC {

using nlohmann::json;

namespace {

constexpr long kLookPause = 1000;  // milliseconds
constexpr int kResultsAtOnce = 500;

/// The members of `analyzer` that make a status, without those that change with every result.
constexpr const char* kStatus[] = {"serial", "model", "address", "state", "reason"};

class CGatewayWatch {
public:
    CGatewayWatch(const CApiClient& gateway, const WatchOptions& options) : gateway_(gateway), options_(options) {}

    /// Everything that is new since the last look.
    void Look() {
        for (const json& analyzer : gateway_.Get("/api/analyzers")) {
            if (IsWatched(analyzer)) {
                LookAt(analyzer);
            }
        }
        ShowNewResults();
    }

private:
    bool IsWatched(const json& analyzer) const {
        return options_.hosts.empty() || std::ranges::any_of(options_.hosts, [&analyzer](const std::string& host) {
                   return analyzer.at("serial") == host || analyzer.at("address") == host;
               });
    }

    void LookAt(const json& analyzer) {
        Seen& seen = seen_[analyzer.at("serial")];
        seen.address = analyzer.at("address");
        json status = {{"event", "status"}, {"host", seen.address}};
        for (const char* const name : kStatus) {
            status[name] = analyzer.at(name);
        }
        if (status != seen.status) {
            seen.status = status;
            Say(seen, status, Text(status, "state") + (status["reason"] == "" ? "" : ": " + Text(status, "reason")));
        }
        if (const json update = analyzer.value("update", json()); update != seen.update) {
            seen.update = update;
            const json event = {{"event", "update"}, {"host", seen.address}, {"update", update}};
            Say(seen, event, update.is_null() ? "" : "update: " + Text(update, "step"));
        }
    }

    void ShowNewResults() {
        const std::string path = "/api/results?limit=" + std::to_string(begun_ ? kResultsAtOnce : 1);
        json results = gateway_.Get(begun_ ? path + "&after=" + std::to_string(last_) : path);
        std::ranges::reverse(results);
        for (const json& result : results) {
            last_ = result.at("id");
            const auto seen = seen_.find(result.at("serial"));
            if (begun_ && seen != seen_.end()) {
                Show(seen->second, gateway_.Get("/api/results/" + std::to_string(last_)));
            }
        }
        begun_ = true;
    }

    struct Seen {
        std::string address;
        json status;
        json update;
        std::string said;
    };

    void Show(Seen& seen, const json& result) const {
        const std::string text = result.at("text");
        const auto read = ReadLabResult(text);
        if (options_.json) {
            json event = read ? ResultJson(*read) : json::object();
            event.update({{"event", "result"}, {"host", seen.address}, {"acknowledged", true}, {"text", text}});
            for (const char* const name : {"id", "serial", "received", "repeats"}) {
                event[name] = result.at(name);
            }
            PrintJson(event);
            return;
        }
        Line(seen, "result " + result.at("id").dump() + " of " + std::to_string(text.size()) + " bytes");
        for (const std::string& line : read ? ResultText(*read) : std::vector<std::string>{"it cannot be read"}) {
            PrintLine("    " + line);
        }
    }

    void Say(Seen& seen, const json& event, const std::string& text) const {
        if (options_.json) {
            PrintJson(event);
        } else if (text != seen.said) {
            seen.said = text;
            Line(seen, text);
        }
    }

    static void Line(const Seen& seen, const std::string& text) {
        PrintLine(TimeText(std::chrono::system_clock::now()) + "  " + seen.address + " " + Text(seen.status, "serial") +
                  "  " + Printable(text));
    }

    static std::string Text(const json& object, const char* name) {
        return Printable(object.at(name).get<std::string>());
    }

    const CApiClient& gateway_;
    const WatchOptions& options_;
    std::map<std::string, Seen> seen_;
    std::int64_t last_ = 0;
    bool begun_ = false;
};

int Watch(const CApiClient& gateway, const WatchOptions& options) {
    const CInterrupt interrupt;
    CGatewayWatch watch(gateway, options);
    watch.Look();
    bool away = false;
    while (!interrupt.Came()) {
        CInterrupt::Sleep(kLookPause);
        try {
            watch.Look();
            away = false;
        } catch (const CApiError& error) {
            if (error.Status() != kUnreachable && error.Status() != kInterrupted) {
                throw;
            }
            if (error.Status() == kUnreachable && !std::exchange(away, true)) {
                PrintProblem(error.what());
            }
        }
    }
    return kDone;
}

}  // namespace

int WatchThroughGateway(const WatchOptions& options) {
    return AskGateway(options.gateway, [&options](const CApiClient& gateway) { return Watch(gateway, options); });
}

}  // namespace ZELPC
