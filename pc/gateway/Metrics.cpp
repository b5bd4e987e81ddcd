#include "gateway/Metrics.h"

#include <fmt/format.h>

#include <map>

#include "base/Clock.h"
#include "gateway/CGateway.h"

namespace ZELPC {

namespace {

/// A label's value: the characters that end it are escaped.
std::string Label(const std::string& text) {
    std::string label;
    for (const char character : text) {
        if (character == '\n') {
            label += "\\n";
            continue;
        }
        if (character == '"' || character == '\\') {
            label += '\\';
        }
        label += character;
    }
    return label;
}

void Head(std::string& out, const char* name, const char* type, const char* help) {
    out += fmt::format("# HELP {} {}\n# TYPE {} {}\n", name, help, name, type);
}

void PutStore(std::string& out, const StoreHealth& health) {
    Head(out, "zelpc_store_failing", "gauge", "1 while results cannot be stored, and so are not acknowledged");
    out += fmt::format("zelpc_store_failing {}\n", health.problem.empty() ? 0 : 1);
    Head(out, "zelpc_results_total", "counter", "Results that came, by what became of them");
    out += fmt::format("zelpc_results_total{{outcome=\"stored\"}} {}\nzelpc_results_total{{outcome=\"repeated\"}} {}\n",
                       health.stored, health.repeated);
    out += fmt::format("zelpc_results_total{{outcome=\"aside\"}} {}\nzelpc_results_total{{outcome=\"failed\"}} {}\n",
                       health.aside, health.failed);
    Head(out, "zelpc_results_removed_total", "counter", "Results that had been kept long enough and are gone");
    out += fmt::format("zelpc_results_removed_total {}\n", health.removed);
}

void PutQueues(std::string& out, CGateway& gateway) {
    Head(out, "zelpc_queue_waiting", "gauge", "Results that wait for a destination");
    const std::vector<QueueCount> queues = gateway.Reader().Queues();
    for (const QueueCount& queue : queues) {
        out += fmt::format("zelpc_queue_waiting{{destination=\"{}\"}} {}\n", Label(queue.destination), queue.waiting);
    }
    Head(out, "zelpc_queue_held", "gauge", "Results that are held until somebody decides");
    for (const QueueCount& queue : queues) {
        out += fmt::format("zelpc_queue_held{{destination=\"{}\"}} {}\n", Label(queue.destination), queue.held);
    }
    Head(out, "zelpc_queue_oldest_seconds", "gauge", "How long the oldest result has waited");
    for (const QueueCount& queue : queues) {
        const std::int64_t age = queue.oldest == 0 ? 0 : (NowMilliseconds() - queue.oldest) / 1000;
        out += fmt::format("zelpc_queue_oldest_seconds{{destination=\"{}\"}} {}\n", Label(queue.destination), age);
    }
}

void PutDeliveries(std::string& out, CGateway& gateway) {
    Head(out, "zelpc_destination_down", "gauge", "1 while nothing gets through to a destination");
    for (const auto& queue : gateway.Queues()) {
        const DeliveryStatus status = queue->Status();
        out += fmt::format("zelpc_destination_down{{destination=\"{}\"}} {}\n", Label(status.name),
                           status.problem.empty() ? 0 : 1);
    }
    Head(out, "zelpc_deliveries_total", "counter", "Attempts to deliver since the start");
    for (const auto& queue : gateway.Queues()) {
        const DeliveryStatus status = queue->Status();
        out += fmt::format("zelpc_deliveries_total{{destination=\"{}\",outcome=\"accepted\"}} {}\n", Label(status.name),
                           status.delivered);
        out += fmt::format("zelpc_deliveries_total{{destination=\"{}\",outcome=\"failed\"}} {}\n", Label(status.name),
                           status.failed);
    }
}

void PutAnalyzers(std::string& out, CGateway& gateway) {
    std::map<std::string, int> states;
    for (const auto& held : gateway.Analyzers()) {
        ++states[TextOf(held.analyzer->View().status.state)];
    }
    Head(out, "zelpc_analyzers", "gauge", "Analyzers by the state of their link");
    for (const auto& [state, count] : states) {
        out += fmt::format("zelpc_analyzers{{state=\"{}\"}} {}\n", Label(state), count);
    }
}

}  // namespace

std::string MetricsText(CGateway& gateway) {
    std::string out;
    PutStore(out, gateway.Store().Health());
    PutQueues(out, gateway);
    PutDeliveries(out, gateway);
    PutAnalyzers(out, gateway);
    Head(out, "zelpc_alarm", "gauge", "1 for each alarm at hand");
    for (const Alarm& alarm : gateway.Alarms().Current()) {
        out += fmt::format("zelpc_alarm{{kind=\"{}\",name=\"{}\"}} 1\n", Label(alarm.kind), Label(alarm.name));
    }
    return out;
}

}  // namespace ZELPC
