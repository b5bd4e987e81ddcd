#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "common/CDescriptor.h"
#include "process/update/CByteSource.h"

namespace RMUP::Process {

/// A connection to the update server, as a source of the bytes that come from it.
class CHttpConnection : public CByteSource {
public:
    /// Takes the connected socket, whose timeouts are set.
    explicit CHttpConnection(CDescriptor socket) : socket_(std::move(socket)) {}

    /// Sends the whole request in one piece. False when that failed.
    [[nodiscard]] bool Send(const std::string& request);

    /// From now on receiving fails once so much time has passed, however much trickles in.
    void LimitTime(std::chrono::seconds time) { deadline_ = std::chrono::steady_clock::now() + time; }
    void UnlimitTime() { deadline_.reset(); }

protected:
    ssize_t Fill(std::span<std::uint8_t> buffer) override;

private:
    /// False with errno when nothing came in time.
    [[nodiscard]] bool WaitReadable(std::chrono::milliseconds left);

    CDescriptor socket_;
    std::optional<std::chrono::steady_clock::time_point> deadline_;
};

}  // namespace RMUP::Process
