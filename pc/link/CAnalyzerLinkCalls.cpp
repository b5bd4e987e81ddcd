// What others ask of a link: see CAnalyzerLink.cpp for what it does by itself.
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/use_awaitable.hpp>

#include "link/CAnalyzerLink.h"
#include "link/LinkError.h"
#include "wire/PCCommand.h"

namespace ZELPC {

namespace asio = boost::asio;

LinkStatus CAnalyzerLink::Status() const {
    const std::scoped_lock lock(statusMutex_);
    return status_;
}

std::shared_ptr<CLinkSession> CAnalyzerLink::OpenSession() const {
    if (session_ == nullptr || !session_->IsOpen()) {
        throw LinkError("there is no connection to the analyzer");
    }
    return session_;
}

asio::awaitable<DeviceInfo> CAnalyzerLink::GetInfo(std::uint16_t items) {
    const auto ask = [self = shared_from_this(), items]() -> asio::awaitable<DeviceInfo> {
        const auto session = self->OpenSession();
        co_return co_await session->GetInfo(items);
    };
    co_return co_await asio::co_spawn(strand_, ask, asio::use_awaitable);
}

asio::awaitable<void> CAnalyzerLink::Unregister() {
    const auto unregister = [self = shared_from_this()]() -> asio::awaitable<void> {
        std::string failure;
        try {
            const auto session = self->OpenSession();
            co_await session->Unregister();
        } catch (const LinkError& error) {
            failure = error.what();
        }
        self->Stop();
        if (!failure.empty()) {
            throw LinkError(failure);
        }
    };
    co_await asio::co_spawn(strand_, unregister, asio::use_awaitable);
}

asio::awaitable<PushProgress> CAnalyzerLink::Push(std::shared_ptr<const CRelease> release, PushMethod method) {
    const auto run = [self = shared_from_this(), release, method]() -> asio::awaitable<PushProgress> {
        const auto session = self->OpenSession();
        if (!self->registered_) {
            throw LinkError("this PC is not registered with the analyzer");
        }
        if (self->push_ != nullptr) {
            throw LinkError("another update is under way");
        }
        const auto push = std::make_shared<CPush>(self->strand_, release, method, [self](const PushProgress& progress) {
            if (self->events_ != nullptr) {
                self->events_->OnPush(progress);
            }
        });
        self->push_ = push;
        const PushProgress progress = co_await push->Run(session);
        self->push_.reset();
        co_return progress;
    };
    co_return co_await asio::co_spawn(strand_, run, asio::use_awaitable);
}

void CAnalyzerLink::CancelPush() {
    asio::post(strand_, [self = shared_from_this()] {
        if (self->push_ != nullptr) {
            self->push_->Cancel();
        }
    });
}

void CAnalyzerLink::Stop() {
    asio::post(strand_, [self = shared_from_this()] {
        self->stopping_ = true;
        if (self->session_ != nullptr) {
            self->session_->Close("this PC ended the link");
        }
        self->timer_.cancel();
    });
}

void CAnalyzerLink::OnScanAnswer(const ScanAnswer& answer, asio::ip::address_v4 from) {
    asio::post(strand_, [self = shared_from_this(), answer, from] { self->TakeSighting(answer, from); });
}

void CAnalyzerLink::OnAlive() {
    asio::post(strand_, [self = shared_from_this()] {
        if (self->session_ != nullptr) {
            self->session_->OnAlive();
        }
    });
}

void CAnalyzerLink::OnOtherPC() {
    asio::post(strand_, [self = shared_from_this()] {
        if (self->registered_ && !self->checking_ && self->session_ != nullptr) {
            self->checking_ = true;
            asio::co_spawn(
                self->strand_, [self] { return self->CheckRegistration(); }, asio::detached);
        }
    });
}

}  // namespace ZELPC
