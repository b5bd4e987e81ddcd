#include "gateway/CApi.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

#include "gateway/CGateway.h"
#include "gateway/Json.h"
#include "gateway/Metrics.h"

namespace ZELPC {

using nlohmann::json;

namespace {

constexpr int kMostAnswered = 500;

WebResponse Answer(const json& value) {
    return WebResponse::Json(200, Dump(value) + "\n");
}

WebResponse Problem(int status, const std::string& text) {
    return WebResponse::Json(status, Dump({{"error", text}}) + "\n");
}

WebResponse Answer(const ActResult& result) {
    return result.status == 200 ? Answer(json{{"count", result.count}, {"text", result.text}})
                                : Problem(result.status, result.text);
}

std::int64_t NumberOf(const std::string& text, std::int64_t otherwise) {
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number < 0) {
        return otherwise;
    }
    return number;
}

std::int64_t TimeOf(const WebRequest& request, const char* name) {
    const std::string& text = request.Get(name);
    const std::int64_t time = ParseTime(text);
    if (!text.empty() && time == 0) {
        throw std::runtime_error(std::string(name) + ": \"" + text + "\" is not a time");
    }
    return time;
}

template <class List>
json ListJson(const List& list) {
    json out = json::array();
    for (const auto& one : list) {
        out.push_back(ToJson(one));
    }
    return out;
}

/// The body of an act as fields, so that it reads like a form.
void TakeBody(WebRequest& request) {
    if (request.body.empty()) {
        return;
    }
    const json body = json::parse(request.body, nullptr, false);
    if (!body.is_object()) {
        throw std::runtime_error("the body is not a JSON object");
    }
    for (const auto& [name, value] : body.items()) {
        if (value.is_structured()) {
            throw std::runtime_error(name + ": a text, a number or a truth value is expected");
        }
        request.query[name] = value.is_string() ? value.get<std::string>() : value.dump();
    }
}

/// An act whose request can be wrong in ways that its answer is to tell.
template <class Act>
CRoutes::Handler ActHandler(Act act) {
    return [act](const WebRequest& original) -> asio::awaitable<WebResponse> {
        WebRequest request = original;
        std::string wrong;
        try {
            TakeBody(request);
            const ActResult result = co_await act(request);
            co_return Answer(result);
        } catch (const std::exception& error) {
            wrong = error.what();
        }
        co_return Problem(400, wrong);
    };
}

}  // namespace

ResultFilter CApi::FilterOf(const WebRequest& request) {
    ResultFilter filter;
    filter.serial = request.Get("serial");
    filter.patient = request.Get("patient");
    filter.since = TimeOf(request, "since");
    filter.until = TimeOf(request, "until");
    filter.before = NumberOf(request.Get("before"), 0);
    filter.after = NumberOf(request.Get("after"), 0);
    filter.limit = static_cast<int>(std::min<std::int64_t>(NumberOf(request.Get("limit"), 50), kMostAnswered));
    return filter;
}

void CApi::AddTo(CRoutes& routes) const {
    AddReading(routes);
    AddActs(routes);
}

void CApi::AddReading(CRoutes& routes) const {
    const auto add = [&routes](const char* path, CRoutes::Answer answer) {
        routes.Add("GET", path, Need::kRead, std::move(answer));
    };
    add("/api/status", [this](const WebRequest&) { return Status(); });
    add("/api/analyzers", [this](const WebRequest&) { return Analyzers(); });
    add("/api/analyzers/*", [this](const WebRequest& request) { return Analyzer(request); });
    add("/api/results", [this](const WebRequest& request) { return Results(request); });
    add("/api/results/*", [this](const WebRequest& request) { return Result(request); });
    add("/api/queues", [this](const WebRequest&) { return Queues(); });
    add("/api/queues/*", [this](const WebRequest& request) { return Queue(request); });
    add("/api/aside", [this](const WebRequest&) { return Aside(); });
    add("/api/releases", [this](const WebRequest&) { return Answer(json(acts_.Releases())); });
    add("/api/events", [](const WebRequest&) {
        WebResponse response;
        response.eventStream = true;
        return response;
    });
    add("/metrics", [this](const WebRequest&) {
        WebResponse response = WebResponse::Text(200, MetricsText(gateway_));
        response.contentType = "text/plain; version=0.0.4; charset=utf-8";
        return response;
    });
    routes.Add("GET", "/healthz", Need::kNothing, [this](const WebRequest&) {
        const bool well = gateway_.Store().Health().problem.empty();
        return WebResponse::Text(well ? 200 : 503, well ? "ok\n" : "results cannot be stored\n");
    });
}

void CApi::AddActs(CRoutes& routes) const {
    const auto add = [&routes](const char* path, auto act) {
        routes.Add("POST", path, Need::kAct, ActHandler(std::move(act)));
    };
    add("/api/queues/*/again", [this](const WebRequest& request) -> asio::awaitable<ActResult> {
        ResultFilter filter = FilterOf(request);
        const bool restricted = !(filter.serial + filter.patient).empty() || filter.since != 0 || filter.until != 0;
        if (!restricted && request.Get("all") != "true") {
            throw std::runtime_error("say which: serial, patient, since, until, or \"all\": true");
        }
        return acts_.Again(request.parts[0], std::move(filter));
    });
    add("/api/deliveries/*/again",
        [this](const WebRequest& request) { return acts_.AgainOne(NumberOf(request.parts[0], 0)); });
    add("/api/deliveries/*/drop",
        [this](const WebRequest& request) { return acts_.Drop(NumberOf(request.parts[0], 0)); });
    add("/api/analyzers/*/push", [this](const WebRequest& request) -> asio::awaitable<ActResult> {
        co_return acts_.Push(request.parts[0], request.Get("release"), request.Get("when_asked") == "true");
    });
    add("/api/analyzers/*/cancel", [this](const WebRequest& request) -> asio::awaitable<ActResult> {
        co_return acts_.CancelPush(request.parts[0]);
    });
}

WebResponse CApi::Status() const {
    const StoreHealth health = gateway_.Store().Health();
    return Answer(json{{"store",
                        {{"problem", health.problem},
                         {"stored", health.stored},
                         {"repeated", health.repeated},
                         {"aside", health.aside},
                         {"failed", health.failed},
                         {"removed", health.removed},
                         {"keep_days", gateway_.Store().KeepDays()}}},
                       {"alarms", ListJson(gateway_.Alarms().Current())}});
}

WebResponse CApi::Analyzers() const {
    json out = json::array();
    for (const auto& held : gateway_.Analyzers()) {
        out.push_back(ToJson(held.analyzer->View()));
    }
    return Answer(out);
}

WebResponse CApi::Analyzer(const WebRequest& request) const {
    const auto held = gateway_.Find(request.parts[0]);
    return held.has_value() ? Answer(ToJson(held->analyzer->View()))
                            : Problem(404, "there is no analyzer " + request.parts[0]);
}

WebResponse CApi::Results(const WebRequest& request) const {
    ResultFilter filter;
    try {
        filter = FilterOf(request);
    } catch (const std::exception& error) {
        return Problem(400, error.what());
    }
    return Answer(ListJson(gateway_.Reader().Results(filter)));
}

WebResponse CApi::Result(const WebRequest& request) const {
    const auto result = gateway_.Reader().Result(NumberOf(request.parts[0], 0));
    if (!result.has_value()) {
        return Problem(404, "there is no such result");
    }
    json out = ToJson(*result);
    out["values"] = ValuesJson(result->text);
    out["text"] = result->text;
    out["deliveries"] = ListJson(gateway_.Reader().DeliveriesOf(result->id));
    return Answer(out);
}

WebResponse CApi::Queues() const {
    json out = json::array();
    for (const QueueCount& count : gateway_.Reader().Queues()) {
        const auto status = gateway_.QueueStatus(count.destination);
        out.push_back(ToJson(count, status.has_value() ? &*status : nullptr));
    }
    return Answer(out);
}

WebResponse CApi::Queue(const WebRequest& request) const {
    const DeliveryState state = request.Get("state") == "waiting" ? DeliveryState::kWaiting : DeliveryState::kHeld;
    const auto limit = static_cast<int>(std::min<std::int64_t>(NumberOf(request.Get("limit"), 50), kMostAnswered));
    const std::string& name = request.parts[0];
    const std::vector<QueueCount> queues = gateway_.Reader().Queues();
    if (std::ranges::find(queues, name, &QueueCount::destination) == queues.end()) {
        return Problem(404, "there is no destination " + name);
    }
    return Answer(ListJson(gateway_.Reader().Deliveries(name, state, limit)));
}

WebResponse CApi::Aside() const {
    return Answer(ListJson(gateway_.Reader().Aside(kMostAnswered)));
}

}  // namespace ZELPC
