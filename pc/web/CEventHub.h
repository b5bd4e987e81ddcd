#pragma once

#include <atomic>
#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/steady_timer.hpp>
#include <deque>
#include <memory>
#include <mutex>
#include <set>
#include <string>

namespace ZELPC {

namespace asio = boost::asio;

/// Tells everybody who listens what happens. A listener that does not keep up loses the oldest events and is told so.
class CEventHub {
public:
    class CListener {
    public:
        explicit CListener(const asio::any_io_executor& executor) : timer_(executor) {}
        /// The next events as text of a stream; a comment when nothing happened for a while; empty at the end.
        /// To be called on the executor.
        asio::awaitable<std::string> Next();

    private:
        friend class CEventHub;
        void Put(const std::string& event);
        void End();

        static constexpr std::size_t kMostWaiting = 256;

        std::mutex mutex_;
        std::deque<std::string> waiting_;
        bool lost_ = false;
        bool ended_ = false;
        asio::steady_timer timer_;
    };

    /// A listener from now on, for as long as somebody holds it; null when there are too many.
    std::shared_ptr<CListener> Listen(const asio::any_io_executor& executor);
    /// Whether anybody listens, so that nothing is made for nobody.
    bool HasListeners() const { return listening_ > 0; }
    /// Any thread may call. `data` is one line.
    void Publish(const std::string& type, const std::string& data);
    /// Ends every stream.
    void Stop();

private:
    static constexpr std::size_t kMostListeners = 64;

    std::mutex mutex_;
    std::atomic<std::size_t> listening_ = 0;  // some may have gone since
    std::set<std::weak_ptr<CListener>, std::owner_less<>> listeners_;
};

}  // namespace ZELPC
