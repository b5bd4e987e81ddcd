#include "UpdateBench.h"

#include <sqlite3.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "UpdateFiles.h"
#include "common/Bytes.h"
#include "net/CConnectionMonitor.h"
#include "net/CUDSMsg.h"
#include "net/CUDSServer.h"
#include "net/PCCommand.h"
#include "process/CUpdateCommand.h"
#include "process/update/CUpdate.h"

using RMUP::Net::CConnectionMonitor;
using RMUP::Net::CUDSServer;

namespace UpdateTest {

namespace {

constexpr char kDevice[] = "/data/device/";
constexpr char kDatabase[] = "/data/db/analyzer.db";
constexpr std::size_t kPacketData = 30000;

std::vector<std::string> Query(const char* statement) {
    sqlite3* database = nullptr;
    std::vector<std::string> rows;
    EXPECT_EQ(sqlite3_open(kDatabase, &database), SQLITE_OK);
    const auto add = [](void* to, int columns, char** values, char**) {
        std::string row;
        for (int i = 0; i < columns; ++i) {
            row += (i == 0 ? "" : "|") + std::string(values[i]);
        }
        static_cast<std::vector<std::string>*>(to)->push_back(row);
        return 0;
    };
    EXPECT_EQ(sqlite3_exec(database, statement, add, &rows, nullptr), SQLITE_OK);
    sqlite3_close(database);
    return rows;
}

}  // namespace

int CFakePC::SendMessage(std::span<const std::uint8_t> packet) {
    const auto payload = packet.subspan(CPCMsg::kHeaderSize);
    const Packet sent(::Bytes::GetBE16(packet, 0), std::string(payload.begin(), payload.end()));
    EXPECT_EQ(packet[2], 1);
    EXPECT_EQ(packet[3], '7');
    {
        const std::lock_guard lock(mutex_);
        sent_.push_back(sent);
    }
    if (onPacket) {
        onPacket(sent);
    }
    return static_cast<int>(packet.size());
}

int CFakePC::SendErrorMessage(std::uint8_t subTag, std::uint8_t tag, std::uint16_t errorCode) {
    CPCMsg message;
    const std::uint8_t payload[] = {static_cast<std::uint8_t>(errorCode >> 8), static_cast<std::uint8_t>(errorCode)};
    return SendMessage(message.MakePacket(kErrorNotice, tag, subTag, payload)) - 9;
}

std::vector<CFakePC::Packet> CFakePC::TakeSent() {
    const std::lock_guard lock(mutex_);
    return std::exchange(sent_, {});
}

UpdateBench::UpdateBench() {
    // Each test has paths of its own; nothing is ever cleared away here, so a machine's real data is safe.
    if (std::filesystem::exists("/data/config")) {
        throw std::runtime_error("These tests need private paths, one set a test; run them through ctest");
    }
    for (const char* directory :
         {"/data/config", "/data/db", "/data/log", "/data/xml_bank/1st/chip_cal", "/data/xml_bank/2nd/chip_cal"}) {
        std::filesystem::create_directories(directory);
    }
    WriteFile("/data/config/config_zelrm.cfg", "PCPeerID=7;\nUpdateURL=127.0.0.1;\nIPChanged=0;\n");
    WriteFile("/data/config/config_webbase.cfg", std::string("ConnectionString=") + kDatabase + ";\n");
    Query(
        "CREATE TABLE Tb_Update_History (ModuleName, UpdateCompleteTime, ElapsedTime, OldVersion, NewVersion, Method)");
    std::string versions;
    for (const char* image : {"BOOT", "KERNEL", "ROOTFS", "APP", "QTE", "DSP", "XML", "SYS"}) {
        versions += std::string(image) + "=1.00.00.0000\n";
    }
    WriteFile(std::string(kDevice) + "nv.cfg", "sn=S1\nproject=N62\nmodel_type=Human\n");
    WriteFile(std::string(kDevice) + "versions.cfg", versions);
    device_ = CDeviceInfo::GetInstance();
    device_->Initialize();
    device_->SetStatus(DeviceStatus::kRegistered);
    AcceptZELApp();
}

UpdateBench::~UpdateBench() {
    if (monitorRuns_) {
        CConnectionMonitor::GetInstance()->Stop();
        pthread_join(CConnectionMonitor::GetInstance()->GetThreadId(), nullptr);
    }
    device_->SetSession(nullptr);
    CUDSServer::DestroyInstance();
}

void UpdateBench::AcceptZELApp() {
    std::jthread connecting([this] {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::string(RMUP::Net::kUDSPath).copy(address.sun_path, sizeof(address.sun_path));
        do {
            zelApp_.Reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        } while (connect(zelApp_.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0);
    });
    ASSERT_EQ(CUDSServer::GetInstance()->ServerOpen(RMUP::Net::kUDSPath), 0);
}

void UpdateBench::ReadZELApp() {
    char buffer[4096];
    for (ssize_t count = 0; (count = recv(zelApp_.Get(), buffer, sizeof(buffer), MSG_DONTWAIT)) > 0;) {
        unread_.append(buffer, static_cast<std::size_t>(count));
    }
    while (unread_.size() >= CUDSMsg::kHeaderSize) {
        const std::size_t length = ::Bytes::GetLE16(Bytes(unread_), 4);
        const std::size_t total = CUDSMsg::kHeaderSize + length + CUDSMsg::kTrailerSize;
        if (unread_.size() < total) {
            break;
        }
        reports_.emplace(::Bytes::GetLE16(Bytes(unread_), 2), unread_.substr(CUDSMsg::kHeaderSize, length));
        unread_.erase(0, total);
    }
}

int UpdateBench::Run(std::uint8_t mode, std::uint8_t method) {
    const std::uint8_t request[] = {mode, method};
    auto slot = RMUP::Process::CUpdateSlot::Take();
    EXPECT_TRUE(slot.has_value());
    const DeviceStatus before = device_->GetStatus();
    int result = 0;
    {
        RMUP::Process::CUpdate update(request, std::move(*slot));
        EXPECT_EQ(device_->GetStatus(), DeviceStatus::kUpdating);
        result = update.Run();
    }
    EXPECT_EQ(device_->GetStatus(), before);
    return result;
}

std::vector<std::string> UpdateBench::TakeReports(std::uint16_t id) {
    ReadZELApp();
    std::vector<std::string> payloads;
    const auto [first, last] = reports_.equal_range(id);
    for (auto report = first; report != last; ++report) {
        payloads.push_back(report->second);
    }
    reports_.erase(first, last);
    return payloads;
}

std::vector<std::string> UpdateBench::TakeOutcomes() {
    std::vector<std::string> reports = TakeReports();
    std::erase_if(reports, [](const std::string& report) { return report[0] == 4; });
    return reports;
}

std::string UpdateBench::Failure(std::uint32_t code, char group) {
    std::string report = "\x02";
    for (int shift = 0; shift < 32; shift += 8) {
        report.push_back(static_cast<char>(code >> shift));
    }
    return report + group;
}

std::shared_ptr<CFakePC> UpdateBench::ConnectPC() {
    auto pc = std::make_shared<CFakePC>();
    device_->SetSession(pc);
    CConnectionMonitor* monitor = CConnectionMonitor::GetInstance();
    monitor->SetTCPConnection(true);
    monitor->SetUDPConnection(true);
    monitor->Start();
    monitorRuns_ = true;
    while (!monitor->IsConnected()) {
        std::this_thread::yield();
    }
    return pc;
}

CPCMsg UpdateBench::Message(std::uint16_t command, const std::string& payload, bool flag) {
    CPCMsg message;
    const auto packet = message.MakePacket(command, 1, '7', Bytes(payload));
    std::ranges::copy(packet.first(CPCMsg::kHeaderSize), message.GetRawHeader().begin());
    message.GetRawHeader()[6] = static_cast<std::uint8_t>(message.GetRawHeader()[6] | (flag ? 1 : 0));
    return message;
}

int UpdateBench::Push(const std::shared_ptr<IPCSession>& pc, const std::string& payload, bool last) {
    CPCMsg message = Message(kImageData, payload, !last);
    return CUpdateCommand().ProcessReceiveUpdateImage(message, pc);
}

void UpdateBench::PushFile(const std::shared_ptr<IPCSession>& pc, const std::string& file) {
    for (std::size_t offset = 0; offset < file.size(); offset += kPacketData) {
        Push(pc, file.substr(offset, kPacketData), offset + kPacketData >= file.size());
    }
}

std::vector<std::string> UpdateBench::History() {
    return Query("SELECT ModuleName, OldVersion, NewVersion, Method FROM Tb_Update_History");
}

std::string UpdateBench::InstalledVersion(const std::string& image) {
    std::istringstream lines(ReadFile(std::string(kDevice) + "versions.cfg"));
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(image + "=")) {
            return line.substr(image.size() + 1);
        }
    }
    return {};
}

bool UpdateBench::Switched() {
    return std::filesystem::exists(std::string(kDevice) + "next");
}

void UpdateBench::ExpectUntouched() {
    EXPECT_FALSE(Switched());
    EXPECT_TRUE(History().empty());
    EXPECT_EQ(ReadFile(std::string(kDevice) + "calls.log").find("nv_set_img_version"), std::string::npos);
}

std::string UpdateBench::ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void UpdateBench::WriteFile(const std::string& path, const std::string& content) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << content;
}

Package::Package() : kernel(ImageData(131073, 2)), rootfs(ImageData(262144, 3)), qte(ImageData(5000, 4)) {}

std::string Package::Sections() const {
    return File("ZN6K", "2.00.00.0003", kernel) + File("ZN6B", bootVersion, boot) + File("ZN6Q", "2.00.00.0004", qte) +
           File("ZN6R", "2.00.00.0005", rootfs);
}

std::string Package::MakeFile() const {
    return File("ZN6S", version, Sections());
}

std::string ZipArchive(const std::string& content) {
    std::ofstream("/data/settings.xml") << content;
    EXPECT_EQ(system("cd /data && python3 -m zipfile -c settings.zip settings.xml"), 0);
    std::ifstream file("/data/settings.zip", std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace UpdateTest
