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
    // Browsers leave tabs and line ends out of an address, and take a backslash for a slash.
    const bool own = back.starts_with('/') && !back.starts_with("//") && back.find_first_of("\t\r\n\\") == back.npos;
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
            text += fmt::format("<span class=\"line\">{} {}</span>", name, Escape(*version));
        }
    }
    return text;
}

std::string Progress(const PushProgress& push) {
    std::string html = Escape(TextOf(push.step)) + (push.reason.empty() ? "" : ": " + Escape(push.reason));
    for (const auto& [image, progress] : push.images) {
        const std::int64_t percent = progress.size == 0 ? 0 : progress.sent * 100 / progress.size;
        html += fmt::format(
            "<span class=\"line\"><span class=\"image\">{0}</span> <progress aria-label=\"{0}\" value=\"{1}\" "
            "max=\"100\"></progress> {2}</span>",
            NameOf(image), percent, progress.stored ? "stored" : fmt::format("{} %", percent));
    }
    return html;
}

const char* KindOf(DeliveryState state) {
    constexpr const char* kKinds[] = {"wait", "bad", "good", ""};
    return kKinds[static_cast<int>(state)];
}

}  // namespace

std::string CPages::AnalyzersTable() const {
    CHtmlTable table("Analyzers", {"Analyzer", "State", "Registered PC", "Versions", "Last result", "Update"});
    for (const auto& held : gateway_.Analyzers()) {
        const AnalyzerView view = held.analyzer->View();
        const LinkStatus& status = view.status;
        table.Add({fmt::format("<strong>{}</strong><br>{} {}", Escape(status.serial), Escape(status.model),
                               status.address.is_unspecified() ? "" : status.address.to_string()),
                   Badge(TextOf(status.state), KindOf(status.state)) +
                       (status.reason.empty() ? "" : "<br>" + Escape(status.reason)),
                   Registrant(view), Versions(view), TimeText(view.lastResult), UpdateCell(view)});
    }
    return table.Html("None was found yet.");
}

std::string CPages::UpdateCell(const AnalyzerView& analyzer) const {
    const std::string& serial = analyzer.status.serial;
    const auto& push = analyzer.push;
    std::string html = push.has_value() ? Progress(*push) : "";
    if (!canAct_) {
        return html;
    }
    if (push.has_value() && !push->IsOver()) {
        // An analyzer that has everything cannot be stopped any more.
        const bool stoppable = push->step != PushStep::kInstalling;
        return html + (stoppable ? ActButton("/act/cancel", {{"serial", serial}}, "Call off", serial) : "");
    }
    if (analyzer.status.state == LinkState::kRegistered) {
        for (const std::string& release : acts_.Releases()) {
            html += ActButton("/act/push", {{"serial", serial}, {"release", release}}, "Send " + release, serial);
        }
    }
    return html;
}

/// How a queue is, the worst first.
std::string CPages::StateOf(const QueueCount& queue) const {
    const auto status = gateway_.QueueStatus(queue.destination);
    if (!status.has_value()) {
        return Badge("not configured", "wait");
    }
    if (!status->problem.empty()) {
        return Badge("nothing gets through", "bad") + "<br>" + Escape(status->problem);
    }
    for (const Alarm& alarm : gateway_.Alarms().Current()) {
        if (alarm.kind == "behind" && alarm.name == queue.destination) {
            return Badge("behind", "bad");
        }
    }
    return queue.held > 0 ? Badge("some are held", "wait") : Badge("well", "good");
}

std::string CPages::QueuesTable() const {
    CHtmlTable table("Queues", {"Destination", "State", "Waiting", "Oldest", "Held", "Last delivered"});
    for (const QueueCount& count : gateway_.Reader().Queues()) {
        const auto status = gateway_.QueueStatus(count.destination);
        table.Add({fmt::format("<a href=\"/queues/{0}\">{0}</a>", Escape(count.destination)), StateOf(count),
                   std::to_string(count.waiting), TimeText(count.oldest),
                   count.held == 0 ? "0" : Badge(std::to_string(count.held), "bad"),
                   status.has_value() ? TimeText(status->lastDelivered) : ""});
    }
    return table.Html("There is no destination.");
}

std::string CPages::DeliveriesTable(const std::vector<Delivery>& deliveries, const char* nothing) const {
    CHtmlTable table("Deliveries", {"Result", "Destination", "State", "Since", "Attempts", "Why", "Act"});
    for (const Delivery& delivery : deliveries) {
        const std::string id = std::to_string(delivery.id);
        const std::string what = fmt::format("result {} to {}", delivery.result, delivery.destination);
        std::string acts;
        if (canAct_ && delivery.state != DeliveryState::kWaiting) {
            acts += ActButton("/act/again", {{"delivery", id}}, "Send again", what);
        }
        if (canAct_ && (delivery.state == DeliveryState::kWaiting || delivery.state == DeliveryState::kHeld)) {
            acts += ActButton("/act/drop", {{"delivery", id}}, "Drop", what);
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
