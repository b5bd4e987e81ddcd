#include "web/CEventHub.h"

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace ZELPC {

asio::awaitable<std::string> CEventHub::CListener::Next() {
    // A comment now and then shows both sides that the other one is there.
    timer_.expires_after(std::chrono::seconds(15));
    {
        const std::lock_guard lock(mutex_);
        if (!waiting_.empty() || ended_) {
            timer_.expires_after(std::chrono::seconds(0));
        }
    }
    co_await timer_.async_wait(asio::as_tuple(asio::use_awaitable));
    const std::lock_guard lock(mutex_);
    if (ended_) {
        co_return std::string();
    }
    std::string text = lost_ ? "event: lost\ndata: {}\n\n" : "";
    lost_ = false;
    for (const std::string& event : waiting_) {
        text += event;
    }
    waiting_.clear();
    co_return text.empty() ? std::string(":\n\n") : text;
}

void CEventHub::CListener::Put(const std::string& event) {
    const std::lock_guard lock(mutex_);
    if (waiting_.size() == kMostWaiting) {
        waiting_.pop_front();
        lost_ = true;
    }
    waiting_.push_back(event);
}

void CEventHub::CListener::End() {
    const std::lock_guard lock(mutex_);
    ended_ = true;
}

std::shared_ptr<CEventHub::CListener> CEventHub::Listen(const asio::any_io_executor& executor) {
    const std::lock_guard lock(mutex_);
    std::erase_if(listeners_, [](const auto& listener) { return listener.expired(); });
    if (listeners_.size() >= kMostListeners) {
        return nullptr;
    }
    auto listener = std::make_shared<CListener>(executor);
    listeners_.insert(listener);
    listening_ = listeners_.size();
    return listener;
}

void CEventHub::Publish(const std::string& type, const std::string& data) {
    const std::string event = "event: " + type + "\ndata: " + data + "\n\n";
    const std::lock_guard lock(mutex_);
    std::erase_if(listeners_, [](const auto& listener) { return listener.expired(); });
    listening_ = listeners_.size();
    for (const auto& weak : listeners_) {
        if (const auto listener = weak.lock()) {
            listener->Put(event);
            // The timer belongs to the listener's executor.
            asio::post(listener->timer_.get_executor(), [listener] { listener->timer_.cancel(); });
        }
    }
}

void CEventHub::Stop() {
    const std::lock_guard lock(mutex_);
    for (const auto& weak : listeners_) {
        if (const auto listener = weak.lock()) {
            listener->End();
            asio::post(listener->timer_.get_executor(), [listener] { listener->timer_.cancel(); });
        }
    }
}

}  // namespace ZELPC
