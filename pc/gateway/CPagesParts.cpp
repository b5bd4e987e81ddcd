#include <fmt/format.h>

#include "gateway/CGateway.h"
#include "gateway/CPages.h"
#include "gateway/Html.h"
#include "gateway/Json.h"
#include "link/CRelease.h"
#include "packet/ScanAnswer.h"

namespace ZELPC {

namespace {

/// After an act: back to the page it came from, or what went wrong.
WebResponse After(const WebRequest& request, const ActResult& result) {
    if (result.status != 200) {
        return WebResponse::Text(result.status, result.text + "\n");
    }
    const std::string& back = request.Get("back");
    const bool own = back.starts_with('/') && !back.starts_with("//") && back.find_first_of("\r\n\\") == back.npos;
    return WebResponse::SeeOther(own ? back : "/");
}

const char* KindOf(LinkState state) {
    switch (state) {
        case LinkState::kRegistered:
            return "good";
        case LinkState::kRefused:
        case LinkState::kTaken:
        case LinkState::kStopped:
            return "bad";
        default:
            return "wait";
    }
}

std::string Registrant(const AnalyzerView& analyzer) {
    if (analyzer.status.state == LinkState::kRegistered) {
        return "this gateway";
    }
    const auto& other = analyzer.status.otherPC;
    return other.has_value() ? Escape(other->name + " at " + DottedAddress(other->address)) : std::string();
}

std::string Versions(const AnalyzerView& analyzer) {
    if (!analyzer.info.has_value()) {
        return {};
    }
    std::string text;
    const DeviceInfo& info = *analyzer.info;
    for (const auto& [name, version] : {std::pair("SYS", info.sysVersion), std::pair("APP", info.appVersion),
                                        std::pair("DSP", info.dspVersion), std::pair("XML", info.xmlVersion)}) {
        if (version.has_value() && !version->empty()) {
            text += fmt::format("{}{} {}", text.empty() ? "" : "<br>", name, Escape(*version));
        }
    }
    return text;
}

std::string Progress(const PushProgress& push) {
    std::string html = Escape(TextOf(push.step)) + (push.reason.empty() ? "" : ": " + Escape(push.reason));
    for (const auto& [image, progress] : push.images) {
        html += fmt::format("<br>{} <progress value=\"{}\" max=\"{}\">{} of {}</progress>", NameOf(image),
                            progress.sent, progress.size, progress.sent, progress.size);
    }
    return html;
}

const char* KindOf(DeliveryState state) {
    constexpr const char* kKinds[] = {"wait", "bad", "good", ""};
    return kKinds[static_cast<int>(state)];
}

}  // namespace

std::string CPages::Form(const WebRequest& request, std::string_view action,
                         std::initializer_list<std::pair<std::string_view, std::string>> fields,
                         std::string_view button) const {
    return canAct_ ? ButtonForm(action, fields, button, guard_, !request.authenticated) : std::string();
}

std::string CPages::AnalyzersTable(const WebRequest& request) const {
    CHtmlTable table("Analyzers", {"Analyzer", "State", "Registered PC", "Versions", "Last result", "Update"});
    for (const auto& held : gateway_.Analyzers()) {
        const AnalyzerView view = held.analyzer->View();
        const LinkStatus& status = view.status;
        table.Add({fmt::format("<strong>{}</strong><br>{} {}", Escape(status.serial), Escape(status.model),
                               status.address.is_unspecified() ? "" : status.address.to_string()),
                   Badge(TextOf(status.state), KindOf(status.state)) +
                       (status.reason.empty() ? "" : "<br>" + Escape(status.reason)),
                   Registrant(view), Versions(view), TimeText(view.lastResult), UpdateCell(view, request)});
    }
    return table.Html("None was found yet.");
}

std::string CPages::UpdateCell(const AnalyzerView& analyzer, const WebRequest& request) const {
    const std::string& serial = analyzer.status.serial;
    std::string html = analyzer.push.has_value() ? Progress(*analyzer.push) : "";
    if (analyzer.push.has_value() && !analyzer.push->IsOver()) {
        return html + Form(request, "/act/cancel", {{"serial", serial}, {"back", "/"}}, "Call off");
    }
    if (analyzer.status.state == LinkState::kRegistered) {
        for (const std::string& release : acts_.Releases()) {
            html += Form(request, "/act/push", {{"serial", serial}, {"release", release}, {"back", "/"}},
                         "Send " + release);
        }
    }
    return html;
}

std::string CPages::QueuesTable() const {
    CHtmlTable table("Queues", {"Destination", "State", "Waiting", "Oldest", "Held", "Last delivered"});
    for (const QueueCount& count : gateway_.Reader().Queues()) {
        const auto status = gateway_.QueueStatus(count.destination);
        const std::string state = !status.has_value() ? Badge("not configured", "wait")
                                  : status->problem.empty()
                                      ? Badge("well", "good")
                                      : Badge("nothing gets through", "bad") + "<br>" + Escape(status->problem);
        table.Add({fmt::format("<a href=\"/queues/{0}\">{0}</a>", Escape(count.destination)), state,
                   std::to_string(count.waiting), TimeText(count.oldest),
                   count.held == 0 ? "0" : Badge(std::to_string(count.held), "bad"),
                   status.has_value() ? TimeText(status->lastDelivered) : ""});
    }
    return table.Html("There is no destination.");
}

std::string CPages::DeliveriesTable(const std::vector<Delivery>& deliveries, const WebRequest& request,
                                    const char* nothing) const {
    CHtmlTable table("Deliveries", {"Result", "Destination", "State", "Since", "Attempts", "Why", "Act"});
    for (const Delivery& delivery : deliveries) {
        const std::initializer_list<std::pair<std::string_view, std::string>> fields = {
            {"delivery", std::to_string(delivery.id)}, {"back", request.path}};
        std::string acts;
        if (delivery.state != DeliveryState::kWaiting) {
            acts += Form(request, "/act/again", fields, "Send again");
        }
        if (delivery.state == DeliveryState::kWaiting || delivery.state == DeliveryState::kHeld) {
            acts += Form(request, "/act/drop", fields, "Drop");
        }
        table.Add({fmt::format("<a href=\"/results/{}\">{}</a> {} {}", delivery.result, delivery.result,
                               Escape(delivery.serial), Escape(delivery.patient)),
                   Escape(delivery.destination), Badge(NameOf(delivery.state), KindOf(delivery.state)),
                   TimeText(delivery.changed), delivery.attempts == 0 ? "" : std::to_string(delivery.attempts),
                   Escape(delivery.reason), acts});
    }
    return table.Html(nothing);
}

void CPages::AddActs(CRoutes& routes) const {
    const auto number = [](const WebRequest& request) { return std::atoll(request.Get("delivery").c_str()); };
    routes.Add("POST", "/act/again", Need::kAct,
               [this, number](const WebRequest& request) -> asio::awaitable<WebResponse> {
                   const ActResult result = co_await acts_.AgainOne(number(request));
                   co_return After(request, result);
               });
    routes.Add("POST", "/act/drop", Need::kAct,
               [this, number](const WebRequest& request) -> asio::awaitable<WebResponse> {
                   const ActResult result = co_await acts_.Drop(number(request));
                   co_return After(request, result);
               });
    routes.Add("POST", "/act/push", Need::kAct, [this](const WebRequest& request) {
        return After(request, acts_.Push(request.Get("serial"), request.Get("release"), false));
    });
    routes.Add("POST", "/act/cancel", Need::kAct,
               [this](const WebRequest& request) { return After(request, acts_.CancelPush(request.Get("serial"))); });
}

}  // namespace ZELPC
