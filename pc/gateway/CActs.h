#pragma once

#include <boost/asio/awaitable.hpp>
#include <string>

#include "store/CStore.h"
#include "store/Records.h"

namespace ZELPC {

class CGateway;
namespace asio = boost::asio;

/// What came of an act.
struct ActResult {
    int status = 200;  ///< as of HTTP
    std::int64_t count = 0;
    std::string text;  ///< for people
};

/// What people can have a gateway do. Each returns when it is done and on the disk.
class CActs {
public:
    explicit CActs(CGateway& gateway) : gateway_(gateway) {}

    /// Sends the results that the filter finds to `destination` again.
    asio::awaitable<ActResult> Again(std::string destination, ResultFilter filter) const;
    asio::awaitable<ActResult> AgainOne(std::int64_t delivery) const;
    asio::awaitable<ActResult> Drop(std::int64_t delivery) const;

    /// Begins to send the release in that folder of the push directory; the analyzer's state tells how it goes.
    ActResult Push(const std::string& serial, const std::string& release, bool whenAsked) const;
    ActResult CancelPush(const std::string& serial) const;
    /// The folders that hold releases.
    std::vector<std::string> Releases() const;

private:
    using Start = std::function<void(CStore::CountDone)>;
    /// What is said of one, and behind any other number.
    struct Told {
        const char* one;
        const char* many;
    };
    static constexpr Told kSentAgain{"one result is sent again", "results are sent again"};
    static constexpr Told kDropped{"one delivery is dropped", "deliveries are dropped"};

    asio::awaitable<ActResult> Change(Start start, const Told& told) const;
    void WakeAll() const;

    CGateway& gateway_;
};

}  // namespace ZELPC
