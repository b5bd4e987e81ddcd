#include "link/CLinkHub.h"

#include <algorithm>

#include "link/CAnalyzerLink.h"
#include "link/CDatagramPort.h"

namespace ZELPC {

CLinkHub::CLinkHub(boost::asio::io_context& context, HubSettings settings)
    : port_(std::make_shared<CDatagramPort>(context, std::move(settings))) {
    port_->Start();
}

CLinkHub::~CLinkHub() = default;

boost::asio::awaitable<void> CLinkHub::Scan(std::vector<boost::asio::ip::address_v4> targets,
                                            std::chrono::milliseconds duration,
                                            std::function<void(const ScanAnswer&)> found) {
    const CDatagramPort::ScanListener listener = [found = std::move(found),
                                                  seen = std::vector<ScanAnswer>()](const ScanAnswer& answer) mutable {
        constexpr std::size_t kMostSeen = 4096;
        const auto same = std::ranges::find(seen, answer.serial, &ScanAnswer::serial);
        if (same != seen.end() && *same == answer) {
            return;
        }
        if (same != seen.end()) {
            *same = answer;
        } else if (seen.size() < kMostSeen) {
            seen.push_back(answer);
        }
        found(answer);
    };
    co_await port_->Scan(targets, duration, listener);
}

std::shared_ptr<IAnalyzerLink> CLinkHub::Hold(LinkSettings settings, std::shared_ptr<ILinkEvents> events) {
    auto link = std::make_shared<CAnalyzerLink>(port_, std::move(settings), std::move(events));
    {
        const std::scoped_lock lock(mutex_);
        std::erase_if(links_, [](const auto& held) { return held.expired(); });
        links_.push_back(link);
    }
    link->Start();
    return link;
}

void CLinkHub::Stop() {
    const std::scoped_lock lock(mutex_);
    for (const auto& held : links_) {
        if (const auto link = held.lock()) {
            link->Stop();
        }
    }
    links_.clear();
    port_->Close();
}

const HubSettings& CLinkHub::Settings() const {
    return port_->Settings();
}

}  // namespace ZELPC
