#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "common/CDescriptor.h"
#include "config/CDeviceInfo.h"
#include "config/IPCSession.h"
#include "net/CPCMsg.h"

namespace UpdateTest {

/// The PC's end of a session: keeps what the device sends, as command and payload.
class CFakePC : public IPCSession {
public:
    using Packet = std::pair<std::uint16_t, std::string>;

    int SendMessage(std::span<const std::uint8_t> packet) override;
    int SendErrorMessage(std::uint8_t subTag, std::uint8_t tag, std::uint16_t errorCode) override;
    std::string GetClientIPAddr() const override { return "127.0.0.1"; }
    std::uint16_t GetClientPort() const override { return 1; }
    void StopSession() override {}
    void SetUpdateFlag(bool wanted) override { updateFlag_ = wanted; }
    bool GetUpdateFlag() const override { return updateFlag_; }

    std::vector<Packet> TakeSent();

    /// Called with every packet that the device sends, on the sender's thread.
    std::function<void(const Packet&)> onPacket;

private:
    std::mutex mutex_;
    std::vector<Packet> sent_;
    std::atomic<bool> updateFlag_{false};
};

/// A Human analyzer around the worker: the device's directory, settings, database, and ZELApp at the local socket. All
/// images are installed in version 1.00.00.0000.
class UpdateBench : public testing::Test {
protected:
    UpdateBench();
    ~UpdateBench() override;

    /// Runs a worker on this thread.
    int Run(std::uint8_t mode, std::uint8_t method);

    /// The payloads that ZELApp got under an id since the last call; by default those of update status.
    std::vector<std::string> TakeReports(std::uint16_t id = 0x0562);

    /// The reports without those of progress.
    std::vector<std::string> TakeOutcomes();

    /// A payload of kind 2.
    static std::string Failure(std::uint32_t code, char group = 0x0C);

    /// Makes a session the registered PC's and both links to it good.
    std::shared_ptr<CFakePC> ConnectPC();

    /// Hands a packet of image data to the service as the session's thread does.
    int Push(const std::shared_ptr<IPCSession>& pc, const std::string& payload, bool last);

    /// Pushes a whole file in packets.
    void PushFile(const std::shared_ptr<IPCSession>& pc, const std::string& file);

    static CPCMsg Message(std::uint16_t command, const std::string& payload, bool flag = false);

    std::vector<std::string> History();
    std::string InstalledVersion(const std::string& image);
    bool Switched();

    /// Whether history, versions and boot partition are as they were.
    void ExpectUntouched();

    ImageInfo& Image(int index) { return device_->GetImageInfo()[static_cast<std::size_t>(index)]; }

    static std::string ReadFile(const std::string& path);
    static void WriteFile(const std::string& path, const std::string& content);

    CDeviceInfo* device_;

private:
    void AcceptZELApp();
    void ReadZELApp();

    CDescriptor zelApp_;
    std::string unread_;
    std::multimap<std::uint16_t, std::string> reports_;
    bool monitorRuns_ = false;
};

inline constexpr char kNothing[] = "\x01";
inline constexpr char kComplete[] = "\x05";

/// A SYS file of four parts, and what it holds.
struct Package {
    std::string version = "2.00.00.0002";
    std::string boot = "Z";
    std::string kernel;
    std::string rootfs;
    std::string qte;
    std::string bootVersion = "2.00.00.0001";

    Package();
    std::string Sections() const;
    std::string MakeFile() const;
};

/// A zip archive that holds "settings.xml" with this content.
std::string ZipArchive(const std::string& content);

}  // namespace UpdateTest
