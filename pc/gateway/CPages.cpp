#include "gateway/CPages.h"

#include <fmt/format.h>

#include "gateway/Assets.h"
#include "gateway/CApi.h"
#include "gateway/CGateway.h"
#include "gateway/Html.h"
#include "gateway/ResultPage.h"

namespace ZELPC {

namespace {

constexpr int kShown = 100;

std::string ResultRows(const std::vector<StoredResult>& results, const char* nothing) {
    CHtmlTable table("Results", {"Received", "Analyzer", "Patient", "Panel", "Measured", "Kind"});
    for (const StoredResult& result : results) {
        table.Add({fmt::format("<a href=\"/results/{}\">{}</a>", result.id, TimeText(result.received)),
                   Escape(result.serial), Escape(result.facts.patient), Escape(result.facts.panel),
                   Escape(DigitsText(result.facts.measured)), result.facts.kind == "Q" ? "control" : "patient"});
    }
    return table.Html(nothing);
}

std::string AlarmBox(CGateway& gateway) {
    std::string items;
    for (const Alarm& alarm : gateway.Alarms().Current()) {
        items +=
            fmt::format("<li>{} <span class=\"quiet\">since {}</span></li>", Escape(alarm.text), TimeText(alarm.since));
    }
    return items.empty() ? items
                         : "<div class=\"alarm\" role=\"alert\"><strong>Somebody has to look at this</strong><ul>" +
                               items + "</ul></div>";
}

std::string Kept(const CStore& store) {
    return store.KeepDays() == 0
               ? std::string("<p class=\"quiet\">Results are kept for ever.</p>\n")
               : fmt::format(
                     "<p class=\"quiet\">A result is kept for {} days after its last delivery, and as long as it "
                     "waits or is held.</p>\n",
                     store.KeepDays());
}

std::string SearchField(const char* label, const char* name, const char* type, const WebRequest& request) {
    return fmt::format("<label>{} <input type=\"{}\" name=\"{}\" value=\"{}\"></label>", label, type, name,
                       Escape(request.Get(name)));
}

std::string SearchForm(const WebRequest& request) {
    return "<form class=\"search\" action=\"/results\">" +
           SearchField("Patient or control", "patient", "text", request) +
           SearchField("Analyzer", "serial", "text", request) +
           SearchField("Received from", "since", "datetime-local", request) +
           SearchField("until", "until", "datetime-local", request) + "<button>Search</button></form>\n";
}

std::string NextPage(const WebRequest& request, const std::vector<StoredResult>& results, int limit) {
    if (results.size() < static_cast<std::size_t>(limit)) {
        return {};
    }
    std::string query = fmt::format("before={}", results.back().id);
    for (const char* const name : {"patient", "serial", "since", "until"}) {
        if (!request.Get(name).empty()) {
            query += fmt::format("&amp;{}={}", name, PercentEncode(request.Get(name)));
        }
    }
    return fmt::format("<p><a href=\"/results?{}\">Older results</a></p>\n", query);
}

}  // namespace

void CPages::AddTo(CRoutes& routes) const {
    const auto add = [&routes](const char* path, CRoutes::Answer answer) {
        routes.Add("GET", path, Need::kRead, std::move(answer));
    };
    add("/", [this](const WebRequest& request) { return Overview(request); });
    add("/results", [this](const WebRequest& request) { return Results(request); });
    add("/results/*", [this](const WebRequest& request) { return Result(request); });
    add("/queues", [this](const WebRequest& request) { return Queues(request); });
    add("/queues/*", [this](const WebRequest& request) { return Queue(request); });
    add("/aside", [this](const WebRequest& request) { return Aside(request); });
    const auto asset = [&routes](const char* path, const char* type, const char* text) {
        routes.Add("GET", path, Need::kRead, [type, text](const WebRequest&) {
            WebResponse response;
            response.contentType = type;
            response.body = text;
            return response;
        });
    };
    asset("/style.css", "text/css; charset=utf-8", kStyle);
    asset("/page.js", "text/javascript; charset=utf-8", kScript);
    AddActs(routes);
}

WebResponse CPages::Page(const WebRequest& request, const std::string& title, const std::string& main) const {
    constexpr std::pair<const char*, const char*> kPlaces[] = {
        {"/", "Overview"}, {"/results", "Results"}, {"/queues", "Queues"}, {"/aside", "Put aside"}};
    std::string places;
    for (const auto& [path, name] : kPlaces) {
        places +=
            fmt::format("<a href=\"{}\"{}>{}</a>", path, request.path == path ? " aria-current=\"page\"" : "", name);
    }
    const std::string problem = gateway_.Store().Health().problem;
    const bool hasActs = main.find(kOfActForm) != main.npos;
    const std::string acts = hasActs ? ActForm(request.path, guard_, !request.authenticated) : "";
    WebResponse response;
    response.body = fmt::format(
        "<!doctype html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><title>{} - zelpc</title>"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">"
        "<link rel=\"stylesheet\" href=\"/style.css\"><link rel=\"icon\" href=\"data:,\">"
        "<script src=\"/page.js\" defer></script></head>\n"
        "<body><a class=\"skip\" href=\"#main\">To the content</a>"
        "<header><strong>zelpc gateway</strong><nav aria-label=\"Pages\">{}</nav></header>\n"
        "<main id=\"main\"><h1>{}</h1>\n{}{}{}</main>\n"
        "<footer>{}Times are this gateway's local time.</footer></body></html>\n",
        Escape(title), places, Escape(title), AlarmBox(gateway_), acts, main,
        problem.empty() ? "" : "Results are not stored and not acknowledged: " + Escape(problem) + ". ");
    return response;
}

WebResponse CPages::Overview(const WebRequest& request) const {
    ResultFilter latest;
    latest.limit = 15;
    return Page(request, "Overview",
                "<h2>Analyzers</h2>\n" + AnalyzersTable() + "<h2>Queues</h2>\n" + QueuesTable() +
                    "<h2>Latest results</h2>\n" + ResultRows(gateway_.Reader().Results(latest), "None came yet."));
}

WebResponse CPages::Results(const WebRequest& request) const {
    ResultFilter filter;
    try {
        filter = CApi::FilterOf(request);
    } catch (const std::exception& error) {
        WebResponse response = Page(request, "Results", SearchForm(request) + "<p>" + Escape(error.what()) + "</p>");
        response.status = 400;
        return response;
    }
    const auto results = gateway_.Reader().Results(filter);
    return Page(request, "Results",
                SearchForm(request) + ResultRows(results, "Nothing was found.") +
                    NextPage(request, results, filter.limit) + Kept(gateway_.Store()));
}

WebResponse CPages::Result(const WebRequest& request) const {
    const auto result = gateway_.Reader().Result(std::atoll(request.parts[0].c_str()));
    if (!result.has_value()) {
        WebResponse response = Page(request, "No such result", "<p>It is not in this store.</p>");
        response.status = 404;
        return response;
    }
    std::string sendings = "<h2>Where it went</h2>\n" + DeliveriesTable(gateway_.Reader().DeliveriesOf(result->id),
                                                                        "It is not for any destination.");
    return Page(request, fmt::format("Result {}", result->id), ResultHtml(*result) + sendings);
}

WebResponse CPages::Queues(const WebRequest& request) const {
    return Page(request, "Queues", QueuesTable());
}

WebResponse CPages::Queue(const WebRequest& request) const {
    const std::string& name = request.parts[0];
    const auto held = gateway_.Reader().Deliveries(name, DeliveryState::kHeld, kShown);
    const auto waiting = gateway_.Reader().Deliveries(name, DeliveryState::kWaiting, kShown);
    return Page(request, "Queue " + name,
                "<h2>Held</h2>\n" + DeliveriesTable(held, "Nothing is held.") + "<h2>Waiting</h2>\n" +
                    DeliveriesTable(waiting, "Nothing waits."));
}

WebResponse CPages::Aside(const WebRequest& request) const {
    CHtmlTable table("Put aside", {"Last", "Analyzer", "Times", "Why", "Text"});
    for (const AsideText& aside : gateway_.Reader().Aside(kShown)) {
        table.Add({TimeText(aside.received), Escape(aside.serial), std::to_string(aside.times), Escape(aside.reason),
                   aside.text.empty() ? "" : "<pre>" + RawText(aside.text) + "</pre>"});
    }
    return Page(
        request, "Put aside",
        "<p>What analyzers sent that cannot be a result. It was not acknowledged, so the analyzer still has what it "
        "knows.</p>\n" +
            table.Html("Nothing was put aside."));
}

}  // namespace ZELPC
