#pragma once

#include <atomic>

#include "config/ISession.h"
#include "unit/support/ServiceTest.h"

namespace UnitTest {

/// A PC session that keeps what is sent through it.
class ScriptedSession : public RMUP::Net::ISession {
public:
    int SendMessage(std::span<const std::uint8_t> packet) override {
        sent.emplace_back(packet.begin(), packet.end());
        return static_cast<int>(packet.size());
    }
    int SendErrorMessage(std::uint8_t subTag, std::uint8_t tag, PCError error) override {
        const auto code = static_cast<std::uint16_t>(error);
        errors.push_back({subTag, tag, static_cast<std::uint8_t>(code >> 8), static_cast<std::uint8_t>(code)});
        return 0;
    }
    std::string GetClientIPAddr() const override { return address; }
    std::uint16_t GetClientPort() const override { return 40123; }
    bool HasPeerClosed() const override { return closed; }
    void StopSession() override { stopped = true; }
    void SetUpdateFlag(bool wanted) override { updateFlag = wanted; }
    bool GetUpdateFlag() const override { return updateFlag; }

    std::string address = "127.0.0.1";
    Buffers sent;
    Buffers errors;  ///< sub-tag, tag and the two bytes of the code
    std::atomic<bool> closed{false};
    std::atomic<bool> stopped{false};
    std::atomic<bool> updateFlag{false};
};

}  // namespace UnitTest
