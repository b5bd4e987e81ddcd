#include "cli/QueueCommand.h"

#include <functional>

#include "cli/CApiClient.h"
#include "cli/ExitStatus.h"
#include "cli/Output.h"

namespace ZELPC {

using nlohmann::json;

namespace {

/// Asks the gateway and shows its answer.
int Ask(const QueueOptions& options, const std::function<void(const CApiClient&)>& work) {
    return AskGateway(options.gateway, [&work](const CApiClient& client) {
        work(client);
        return static_cast<int>(kDone);
    });
}

std::string Plain(const json& value) {
    return Printable(value.is_string() ? value.get<std::string>() : value.is_null() ? "" : value.dump());
}

/// A list as a table of these members, or as a JSON object a line.
void Show(const json& list, bool asJson, const std::vector<std::pair<const char*, const char*>>& columns) {
    std::vector<std::vector<std::string>> rows(1);
    for (const auto& [member, title] : columns) {
        rows[0].emplace_back(title);
    }
    for (const json& one : list) {
        if (asJson) {
            PrintJson(one);
            continue;
        }
        std::vector<std::string>& row = rows.emplace_back();
        for (const auto& [member, title] : columns) {
            row.push_back(Plain(one.value(member, json())));
        }
    }
    if (!asJson) {
        for (const std::string& line : Table(rows)) {
            PrintLine(line);
        }
    }
}

void ShowAct(const json& answer, bool asJson) {
    if (asJson) {
        PrintJson(answer);
    } else {
        PrintLine(Plain(answer.at("text")));
    }
}

}  // namespace

int RunQueueList(const QueueOptions& options) {
    return Ask(options, [&options](const CApiClient& client) {
        Show(client.Get("/api/queues"), options.json,
             {{"destination", "DESTINATION"},
              {"waiting", "WAITING"},
              {"oldest", "OLDEST"},
              {"held", "HELD"},
              {"last_delivered", "LAST DELIVERED"},
              {"problem", "PROBLEM"}});
    });
}

int RunQueueShow(const QueueOptions& options) {
    return Ask(options, [&options](const CApiClient& client) {
        Show(client.Get("/api/queues/" + options.name + (options.waiting ? "?state=waiting" : "?state=held") +
                        "&limit=500"),
             options.json,
             {{"id", "DELIVERY"},
              {"result", "RESULT"},
              {"serial", "ANALYZER"},
              {"patient", "PATIENT"},
              {"queued", "QUEUED"},
              {"attempts", "ATTEMPTS"},
              {"reason", "WHY"}});
    });
}

int RunQueueAgain(const QueueOptions& options) {
    return Ask(options, [&options](const CApiClient& client) {
        if (options.delivery != 0) {
            ShowAct(client.Post("/api/deliveries/" + std::to_string(options.delivery) + "/again", json::object()),
                    options.json);
            return;
        }
        json body = {{"all", options.all}};
        for (const auto& [name, value] : {std::pair("serial", options.serial), std::pair("patient", options.patient),
                                          std::pair("since", options.since), std::pair("until", options.until)}) {
            if (!value.empty()) {
                body[name] = value;
            }
        }
        ShowAct(client.Post("/api/queues/" + options.name + "/again", body), options.json);
    });
}

int RunQueueDrop(const QueueOptions& options) {
    return Ask(options, [&options](const CApiClient& client) {
        ShowAct(client.Post("/api/deliveries/" + std::to_string(options.delivery) + "/drop", json::object()),
                options.json);
    });
}

}  // namespace ZELPC
