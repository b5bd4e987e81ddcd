#include "cli/CWatch.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <nlohmann/json.hpp>

#include "cli/InfoText.h"
#include "cli/Output.h"
#include "cli/ResultText.h"
#include "link/LinkError.h"
#include "link/NoThrow.h"
#include "wire/PCCommand.h"

namespace ZELPC {

namespace asio = boost::asio;
using nlohmann::json;

namespace {

constexpr std::chrono::seconds kLookPause{5};

bool IsUpdating(const DeviceInfo& info) {
    return info.activity == static_cast<std::uint8_t>(Activity::kUpdating);
}

std::string Versions(const DeviceInfo& info) {
    const auto version = [](const char* image, const std::optional<std::string>& text) {
        return image + (text && !text->empty() ? " " + *text : " -");
    };
    return version("SYS", info.sysVersion) + version(", APP", info.appVersion) + version(", DSP", info.dspVersion) +
           version(", XML", info.xmlVersion);
}

std::string StatusText(const LinkStatus& status) {
    std::string text = TextOf(status.state);
    if (!status.reason.empty()) {
        text += ": " + status.reason;
    }
    if (status.otherPC) {
        text += ", " + PCText(*status.otherPC);
    }
    if (status.nextTry) {
        text += "; again at " + TimeText(*status.nextTry).substr(11);
    }
    return text;
}

json StatusJson(const std::string& host, const LinkStatus& status) {
    json object = {{"event", "status"},
                   {"host", host},
                   {"time", TimeText(std::chrono::system_clock::now())},
                   {"state", TextOf(status.state)},
                   {"serial", status.serial},
                   {"model", status.model},
                   {"address", status.address.to_string()}};
    if (!status.reason.empty()) {
        object["reason"] = status.reason;
    }
    if (status.otherPC) {
        object["pc"] = PCJson(*status.otherPC);
    }
    if (status.nextTry) {
        object["next_try"] = TimeText(*status.nextTry);
    }
    return object;
}

}  // namespace

CWatch::CWatch(std::string host, WatchSetting setting) : host_(std::move(host)), setting_(std::move(setting)) {}

void CWatch::Begin(std::shared_ptr<IAnalyzerLink> link) {
    link_ = std::move(link);
    asio::co_spawn(
        *setting_.context, [self = shared_from_this()] { return self->LookForUpdates(); }, asio::detached);
}

void CWatch::End() {
    link_->Stop();
}

void CWatch::OnStatus(const LinkStatus& status) {
    status_ = status;
    if (setting_.json) {
        PrintJson(StatusJson(host_, status));
    } else if (status.state != LinkState::kSearching && status.state != LinkState::kConnecting &&
               status.state != LinkState::kRegistering) {
        Say(StatusText(status));
    }
    if (status.refusal == Refusal::kPassword) {
        // It would be refused for ever.
        refusal_ = status.refusal;
        link_->Stop();
    }
    if (status.state == LinkState::kStopped) {
        setting_.stopped(refusal_);
    }
}

void CWatch::OnInfo(const DeviceInfo& info) {
    const bool news = !info_ || Versions(*info_) != Versions(info);
    info_ = info;
    if (setting_.json) {
        json object = InfoJson(info);
        object["event"] = "info";
        object["host"] = host_;
        PrintJson(object);
    } else if (news) {
        Say(Versions(info));
    }
}

void CWatch::OnTakenOver(const OtherPC& other) {
    if (setting_.json) {
        PrintJson({{"event", "taken_over"}, {"host", host_}, {"serial", status_.serial}, {"pc", PCJson(other)}});
    }
}

void CWatch::OnResult(std::shared_ptr<CReceivedResult> result) {
    asio::post(*setting_.disk, [self = shared_from_this(), result = std::move(result)]() mutable {
        const Fate fate = self->Store(*result);
        asio::post(*self->setting_.context,
                   [self, result = std::move(result), fate] { self->ShowResult(*result, fate); });
    });
}

CWatch::Fate CWatch::Store(CReceivedResult& result) const {
    Fate fate;
    if (!HoldsResult(result.Text())) {
        fate.problem = "not acknowledged: there is no result in it";
        return fate;
    }
    if (setting_.folder == nullptr) {
        fate.problem = "not acknowledged: without --save it is only shown, and stays at the analyzer";
        return fate;
    }
    try {
        const auto read = ReadLabResult(result.Text());
        const CResultFolder::Saved saved =
            setting_.folder->Save(result.Serial(), result.Text(), read ? read->Measured() : "");
        fate.path = saved.path;
        fate.again = saved.again;
        fate.acknowledged = result.Acknowledge();
        if (!fate.acknowledged) {
            fate.problem = "too late to be acknowledged: the analyzer will say that it was not sent";
        }
    } catch (const std::exception& error) {
        fate.problem = std::string("not acknowledged: ") + error.what();
    }
    return fate;
}

void CWatch::ShowResult(const CReceivedResult& result, const Fate& fate) const {
    const auto read = ReadLabResult(result.Text());
    if (setting_.json) {
        json object = read ? ResultJson(*read) : json::object();
        object["event"] = "result";
        object["host"] = host_;
        object["serial"] = result.Serial();
        object["received"] = TimeText(result.Received());
        object["text"] = result.Text();
        object["acknowledged"] = fate.acknowledged;
        object["again"] = fate.again;
        object["saved"] = fate.path.empty() ? json() : json(fate.path);
        if (!fate.problem.empty()) {
            object["problem"] = fate.problem;
        }
        PrintJson(object);
        return;
    }
    Say("a result of " + std::to_string(result.Text().size()) + " bytes");
    for (const std::string& line : read ? ResultText(*read) : std::vector<std::string>{"it cannot be read"}) {
        PrintLine("    " + line);
    }
    if (!fate.path.empty()) {
        PrintLine("    " + std::string(fate.again ? "saved before as " : "saved as ") + fate.path);
    }
    if (!fate.problem.empty()) {
        PrintLine("    " + fate.problem);
    }
}

asio::awaitable<void> CWatch::LookForUpdates() {
    const auto self = shared_from_this();
    asio::steady_timer timer(*setting_.context);
    bool updating = false;
    while (status_.state != LinkState::kStopped) {
        timer.expires_after(kLookPause);
        co_await timer.async_wait(kNoThrow);
        if (status_.state != LinkState::kRegistered) {
            continue;
        }
        try {
            const DeviceInfo now = co_await link_->GetInfo(kItemActivity);
            if (IsUpdating(now) == updating) {
                continue;
            }
            updating = IsUpdating(now);
            if (!setting_.json) {
                Say(updating ? "is updating its software" : "has ended its update");
            }
            const DeviceInfo versions = co_await link_->GetInfo(kItemActivity | kItemAnyVersion);
            OnInfo(versions);
        } catch (const LinkError&) {
            // The link says itself what became of it.
        }
    }
}

void CWatch::Say(const std::string& text) const {
    PrintLine(TimeText(std::chrono::system_clock::now()) + "  " + host_ +
              (status_.serial.empty() ? "" : " " + status_.serial) + "  " + text);
}

}  // namespace ZELPC
