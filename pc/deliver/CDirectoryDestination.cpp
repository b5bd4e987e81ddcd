#include "deliver/CDirectoryDestination.h"

#include <fcntl.h>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace ZELPC {

namespace {

class CFile {
public:
    CFile(const std::string& path, int flags) : descriptor_(::open(path.c_str(), flags | O_CLOEXEC, 0640)) {}
    ~CFile() { Close(); }
    CFile(const CFile&) = delete;
    CFile& operator=(const CFile&) = delete;

    bool IsOpen() const { return descriptor_ >= 0; }
    bool Write(std::string_view text) {
        while (!text.empty()) {
            const ssize_t size = ::write(descriptor_, text.data(), text.size());
            if (size < 0 && errno != EINTR) {
                return false;
            }
            text.remove_prefix(size > 0 ? static_cast<std::size_t>(size) : 0);
        }
        return true;
    }
    bool Sync() { return ::fsync(descriptor_) == 0; }
    bool Close() {
        const int descriptor = std::exchange(descriptor_, -1);
        return descriptor < 0 || ::close(descriptor) == 0;
    }

private:
    int descriptor_;
};

/// Returns what failed, or the empty text.
std::string WriteFile(const std::string& directory, const std::string& name, std::string_view text) {
    // Hidden, so that a reader that takes every file leaves it alone.
    const std::string made = directory + "/." + name + ".part";
    CFile file(made, O_WRONLY | O_CREAT | O_TRUNC);
    if (!file.IsOpen()) {
        return made + ": " + std::strerror(errno);
    }
    const std::string path = directory + "/" + name;
    if (!file.Write(text) || !file.Sync() || !file.Close() || std::rename(made.c_str(), path.c_str()) != 0) {
        const std::string error = path + ": " + std::strerror(errno);
        ::unlink(made.c_str());
        return error;
    }
    CFile folder(directory, O_RDONLY | O_DIRECTORY);
    return folder.IsOpen() && folder.Sync() ? std::string() : directory + ": " + std::strerror(errno);
}

}  // namespace

std::string CDirectoryDestination::FileName(const OutgoingMessage& message) {
    std::string serial = message.serial;
    // The analyzer's own words: never a path.
    std::ranges::replace_if(
        serial, [](unsigned char byte) { return std::isalnum(byte) == 0 && byte != '-'; }, '_');
    return fmt::format("{:%Y%m%d-%H%M%S}-{}-{}.hl7", fmt::gmtime(static_cast<std::time_t>(message.received / 1000)),
                       serial, message.result);
}

asio::awaitable<DeliveryOutcome> CDirectoryDestination::Deliver(const OutgoingMessage& message) {
    std::string error;
    co_await asio::co_spawn(
        disk_.get_executor(),
        [this, &message, &error]() -> asio::awaitable<void> {
            error = WriteFile(directory_, FileName(message), message.text);
            co_return;
        },
        asio::use_awaitable);
    if (!error.empty()) {
        co_return DeliveryOutcome{Verdict::kUnreachable, error};
    }
    co_return DeliveryOutcome{Verdict::kAccepted, {}};
}

}  // namespace ZELPC
