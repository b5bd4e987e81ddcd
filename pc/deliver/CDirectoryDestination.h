#pragma once

#include <boost/asio/thread_pool.hpp>
#include <string>

#include "deliver/CDestination.h"

namespace ZELPC {

/// A directory that gets a file for each result. A file appears whole or not at all, and is on the disk when it does; a
/// repeated message is the same file again.
class CDirectoryDestination : public CDestination {
public:
    explicit CDirectoryDestination(std::string directory) : directory_(std::move(directory)) {}

    asio::awaitable<DeliveryOutcome> Deliver(const OutgoingMessage& message) override;
    void Cancel() override {}

    /// The file's name: time of arrival, analyzer and number of the result, so that names sort as results came.
    static std::string FileName(const OutgoingMessage& message);

private:
    const std::string directory_;
    // Syncing a disk takes its time, and nobody else should wait for it.
    asio::thread_pool disk_{1};
};

}  // namespace ZELPC
