#include "fuzz/Device.h"

#include <csignal>

#include "core/Routes.h"
#include "net/CConnectionMonitor.h"
#include "net/CResultMarker.h"
#include "process/update/CUpdateAccess.h"

/// Handlers that wait for the PC or for the system do so in vain here.
extern "C" unsigned sleep(unsigned) {
    return 0;
}

namespace Fuzz {

namespace {

constexpr char kSettings[] =
    "Comment=ZELRmUp Configuration File;\nZELRMTCPPort=9034;\nZELRMUDPPort=9035;\nPCIPAddress=127.0.0.1;\n"
    "PCTCPPort=1;\nPCUDPPort=40036;\nPCSWName=OldPC;\nPCPeerID=7;\nIPChanged=1;\n";
constexpr char kResults[] =
    "INSERT INTO Tb_Operator_List VALUES ('admin', 'password');"
    "INSERT INTO Tb_Result_Summary VALUES (12, 'P-4711', '2019-03-04', 'F', 'S3', 'Canine', 'C9', 'SER', '4Y',"
    " '1+', '2+', '3+', 'R5', 'SN-1', 'Panel', 'LOT8', '2023-01-02 11:30:58', 'Anna', 'E0', 'L1', 0);"
    "INSERT INTO Tb_Result_Data VALUES (12, 'GLU', 5.5, 'mmol/L', 3.9, 6.1, 'N', 0.5, 33);"
    "INSERT INTO Tb_Ctrl_Summary VALUES (12, 'Q-1', 'R6', 'SN-1', 'QPanel', 'LOT9', 'Mat', 'High', 'ML7',"
    " '20251231', '2023-01-02', 'Ben', '', '', 0);"
    "INSERT INTO Tb_Ctrl_Data VALUES (12, 'GLU', 5, 16777216, 1, 'N', '1-2s', 'W', 4, 6, 3.5, 7.5);";

/// What lies where the service writes.
std::set<std::filesystem::path> Files() {
    std::set<std::filesystem::path> files;
    for (const char* directory : {"/data", "/tmp"}) {
        for (const auto& entry : std::filesystem::directory_iterator(directory)) {
            files.insert(entry.path());
        }
    }
    return files;
}

/// The fuzzer's clock interrupts the program; calls on sockets then go on instead of failing.
void RestartInterruptedCalls() {
    struct sigaction action {};
    sigaction(SIGALRM, nullptr, &action);
    action.sa_flags |= SA_RESTART;
    sigaction(SIGALRM, &action, nullptr);
}

}  // namespace

Device& Device::Get() {
    static Device device;
    return device;
}

Device::Device() {
    testing::FLAGS_gtest_throw_on_failure = true;
    RestartInterruptedCalls();
    UnitTest::WriteFile(kSystemConfigFile, "IPAddress=10.9.8.7;\n");
    UnitTest::WriteFile(kApplicationConfigFile, "ReferenceRangeDisable=0;\n");
    UnitTest::WriteFile("/data/device/nv.cfg", "sn=SN-0123456789ABCDE\nproject=N62X-LONG\n");
    UnitTest::WriteFile("/data/device/versions.cfg", "SYS=1.0.0.1\nAPP=1.0.0.2\nXML=1.23.45.6789012\n");
    database_.Execute("PRAGMA synchronous = OFF");
    database_.Execute(kResults);
    ConnectRoutes();
    CDeviceInfo::GetInstance()->Initialize();

    known_ = Files();
    known_.insert({"/tmp/rm_send_result_success", "/tmp/.rm_proc", "/tmp/sendtopc.data"});
    for (const ImageInfo& image : CDeviceInfo::GetInstance()->GetImageInfo()) {
        known_.insert(image.RawPath);
    }
}

void Device::Reset(std::uint8_t status) {
    UnitTest::WriteFile(kOwnConfigFile, kSettings);
    std::filesystem::remove("/data/device/calls.log");
    CDeviceInfo* device = CDeviceInfo::GetInstance();
    device->SetStatus(static_cast<DeviceStatus>(status % 6));
    device->ClearImageInfo();
    for (ImageInfo& image : device->GetImageInfo()) {
        image.SetNewVersion({});
        std::filesystem::remove(image.RawPath);
    }
    auto* monitor = RMUP::Net::CConnectionMonitor::GetInstance();
    monitor->ReplaceLink(nullptr);
    monitor->SetUDPConnection(false);
    Service().updates.Gate().Shut();
    Service().updates.Gate().Open();
    RMUP::Net::CResultMarker::Remove();
}

void Device::RequireOrder() const {
    const std::string now = UnitTest::ReadFile(kOwnConfigFile);
    Require(std::ranges::count(now, '\n') == std::ranges::count(kSettings, '\n'), "the settings keep their lines");
    Require(now.starts_with("Comment=ZELRmUp Configuration File;\nZELRMTCPPort=9034;\n"), "the settings stay the own");

    for (const auto& path : Files()) {
        Require(known_.contains(path), "only known files are written");
    }
}

}  // namespace Fuzz
