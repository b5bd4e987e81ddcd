#include "gateway/CActs.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <filesystem>

#include "base/AwaitCallback.h"
#include "gateway/CGateway.h"
#include "link/CRelease.h"
#include "link/LinkError.h"
#include "wire/PCCommand.h"

namespace ZELPC {

namespace {

asio::awaitable<void> AskVersions(const CGateway::Held& of) {
    try {
        of.analyzer->OnInfo(co_await of.link->GetInfo(kItemActivity | kItemAnyVersion));
    } catch (const LinkError&) {
        // One that restarts tells its versions when it is registered again.
    }
}

asio::awaitable<void> PushRelease(CGateway::Held to, std::shared_ptr<const CRelease> release, PushMethod method,
                                  std::string serial) {
    std::string failure;
    try {
        const PushProgress end = co_await to.link->Push(release, method);
        spdlog::info("{}: update {}{}{}", serial, TextOf(end.step), end.reason.empty() ? "" : ": ", end.reason);
        if (end.step == PushStep::kInstalled) {
            co_await AskVersions(to);
        }
        co_return;
    } catch (const std::exception& error) {
        failure = error.what();
    }
    spdlog::error("{}: no update: {}", serial, failure);
    to.analyzer->OnPush({.step = PushStep::kFailed, .images = {}, .reason = failure});
}

/// An act on one thing that did nothing did not find it.
ActResult OrNone(ActResult result, const char* none) {
    return result.status == 200 && result.count == 0 ? ActResult{404, 0, none} : result;
}

std::shared_ptr<const CRelease> ReadFor(const std::filesystem::path& folder, const LinkStatus& analyzer) {
    auto release = std::make_shared<const CRelease>(CRelease::Read(folder));
    release->RequireFor(analyzer.model);
    return release;
}

}  // namespace

asio::awaitable<ActResult> CActs::Change(Start start, const Told& told) const {
    const auto begin = [&start](auto then) {
        start([then](std::int64_t count, const std::string* error) {
            then(error == nullptr ? ActResult{200, count, {}} : ActResult{409, 0, *error});
        });
    };
    const auto file = [this](auto then) { gateway_.Store().File([then](const std::string*) { then(true); }); };
    co_await AwaitCallback<bool>(file);  // what has just come is found, too
    for (const auto& queue : gateway_.Queues()) {
        co_await queue->TellStore();  // what has just been delivered does not wait any more
    }
    ActResult result = co_await AwaitCallback<ActResult>(begin);
    if (result.status == 200) {
        result.text = result.count == 1 ? told.one : fmt::format("{} {}", result.count, told.many);
        WakeAll();
    }
    co_return result;
}

void CActs::WakeAll() const {
    for (const auto& queue : gateway_.Queues()) {
        queue->WakeAll();
    }
}

asio::awaitable<ActResult> CActs::Again(std::string destination, ResultFilter filter) const {
    spdlog::info("asked to send again to {}: serial \"{}\", patient \"{}\"", destination, filter.serial,
                 filter.patient);
    const Start start = [this, &destination, &filter](CStore::CountDone done) {
        gateway_.Store().Again(destination, filter, std::move(done));
    };
    co_return co_await Change(start, kSentAgain);
}

asio::awaitable<ActResult> CActs::AgainOne(std::int64_t delivery) const {
    spdlog::info("asked to send delivery {} again", delivery);
    const Start start = [this, delivery](CStore::CountDone done) {
        gateway_.Store().AgainOne(delivery, std::move(done));
    };
    co_return OrNone(co_await Change(start, kSentAgain), "there is no such delivery, or it waits already");
}

asio::awaitable<ActResult> CActs::Drop(std::int64_t delivery) const {
    spdlog::warn("asked to drop delivery {}", delivery);
    const Start start = [this, delivery](CStore::CountDone done) { gateway_.Store().Drop(delivery, std::move(done)); };
    co_return OrNone(co_await Change(start, kDropped), "no such delivery waits or is held");
}

ActResult CActs::Push(const std::string& serial, const std::string& release, bool whenAsked) const {
    const auto held = gateway_.Find(serial);
    if (!held.has_value()) {
        return {404, 0, "there is no analyzer " + serial};
    }
    const LinkStatus status = held->link->Status();
    if (status.state != LinkState::kRegistered) {
        return {409, 0, "this gateway is not registered with " + serial};
    }
    const std::vector<std::string> releases = Releases();
    if (std::ranges::find(releases, release) == releases.end()) {
        return {404, 0, "there is no release " + release + " in the push directory"};
    }
    try {
        const std::filesystem::path folder = std::filesystem::path(gateway_.Config().pushDirectory) / release;
        const auto read = ReadFor(folder, status);
        if (!held->analyzer->BeginPush()) {
            return {409, 0, "another update of " + serial + " is under way"};
        }
        asio::co_spawn(gateway_.Executor(),
                       PushRelease(*held, read, whenAsked ? PushMethod::kWhenAsked : PushMethod::kOffer, serial),
                       asio::detached);
    } catch (const ReleaseError& error) {
        return {422, 0, error.what()};
    }
    return {200, 1, "the update of " + serial + " begins"};
}

ActResult CActs::CancelPush(const std::string& serial) const {
    const auto held = gateway_.Find(serial);
    if (!held.has_value()) {
        return {404, 0, "there is no analyzer " + serial};
    }
    held->link->CancelPush();
    return {200, 1, "the update of " + serial + " is called off"};
}

std::vector<std::string> CActs::Releases() const {
    std::vector<std::string> releases;
    std::error_code error;
    if (const std::string& directory = gateway_.Config().pushDirectory; !directory.empty()) {
        for (const auto& entry : std::filesystem::directory_iterator(directory, error)) {
            if (entry.is_directory(error)) {
                releases.push_back(entry.path().filename());
            }
        }
    }
    std::ranges::sort(releases);
    return releases;
}

}  // namespace ZELPC
