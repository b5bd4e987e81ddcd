#pragma once

#include <string>

#include "common/CDescriptor.h"
#include "process/update/CByteSource.h"
#include "process/update/CReceiveLimit.h"

namespace RMUP::Process {

/// A connection to the update server, as a source of the bytes that come from it.
class CHttpConnection : public CByteSource {
public:
    /// Takes the connected socket, whose timeouts are set, and what is demanded of the server from now on.
    CHttpConnection(CDescriptor socket, const CReceiveLimit& limit) : socket_(std::move(socket)), limit_(limit) {}

    /// Sends the whole request in one piece. False when that failed.
    [[nodiscard]] bool Send(const std::string& request);

    /// What is demanded of the server from now on; a receiving that breaks it fails with ETIMEDOUT.
    void SetLimit(const CReceiveLimit& limit) { limit_ = limit; }

protected:
    ssize_t Fill(std::span<std::uint8_t> buffer) override;

private:
    /// False with errno when nothing came in time.
    [[nodiscard]] bool WaitReadable();

    CDescriptor socket_;
    CReceiveLimit limit_;
};

}  // namespace RMUP::Process
