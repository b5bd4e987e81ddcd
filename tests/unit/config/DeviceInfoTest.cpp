#include "config/CDeviceInfo.h"

#include "unit/support/ServiceTest.h"

using namespace UnitTest;

namespace {

class DeviceInfoTest : public ServiceTest {
protected:
    CDeviceInfo device_;
};

}  // namespace

// Faults: a model type compared without regard to case, a missing one that is not Human, names of one model mixed with
// those of the other.
TEST_F(DeviceInfoTest, TheModelTypeSelectsTheCatalogue) {
    const std::pair<const char*, bool> cases[] = {{"sn=1\n", true},
                                                  {"model_type=Human\n", true},
                                                  {"model_type=human\n", false},
                                                  {"model_type=\n", false},
                                                  {"model_type=Veterinary\n", false}};
    for (const auto& [identity, human] : cases) {
        WriteFile("/data/device/nv.cfg", identity);
        device_.Initialize();
        const ImageInfo& app = device_.GetImageInfo()[kAppImage];
        EXPECT_EQ(app.Magic, human ? "ZN6A" : "ZV6A") << identity;
        EXPECT_EQ(app.FilePath, human ? "/mnt/usb/zel_app.n62.bin" : "/mnt/usb/zel_app.n62v.bin");
        EXPECT_EQ(app.ServerPath, human ? "/n62/zel_app.n62.bin" : "/n62v_vorn/zel_app.n62v.bin");
        EXPECT_EQ(app.RawPath, "/tmp/zel_app.n62.raw");
    }
    EXPECT_EQ(device_.GetImageInfo()[kDSPImage].DisplayName + device_.GetImageInfo()[kBootImage].ServerPath, "");
    EXPECT_TRUE(std::filesystem::is_directory("/data/update"));
}

// Faults: versions read from the wrong place of the library's answer, a text that is no version taken for one, a DSP
// version from the place that is not for this program.
TEST_F(DeviceInfoTest, ReadsIdentityAndVersions) {
    WriteFile("/data/device/nv.cfg", "sn=SN-1\nproject=N62\n");
    WriteFile("/data/device/versions.cfg",
              "BOOT=1.0.0.1\nKERNEL=1.0.0.2\nROOTFS=1.0.0.3\nAPP=1.0.0.4\nQTE=1.0.0.5\nDSP=1.0.0.6\nXML=garbage\nSYS=1."
              "0.0.8\n");
    device_.SetStatus(DeviceStatus::kUpdating);
    device_.SetUpdateFlag(true);
    device_.GetImageInfo()[kQTEImage].Download = 5;
    device_.Initialize();
    EXPECT_EQ(device_.GetSerialNumber() + device_.GetProject(), "SN-1N62");
    EXPECT_EQ(device_.GetStatus(), DeviceStatus::kDisconnect);
    EXPECT_FALSE(device_.GetUpdateFlag());
    EXPECT_EQ(device_.GetImageInfo()[kQTEImage].Download, 0);
    EXPECT_EQ(device_.GetSYSVersion() + device_.GetAppVersion() + device_.GetXMLVersion() + device_.GetDSPVersion(),
              "1.0.0.81.0.0.4garbage");
    std::string installed;
    for (int image = 0; image < kImageCount; ++image) {
        installed += std::string_view(device_.GetCurrentVersion(image).getVersion()).back();
    }
    EXPECT_EQ(installed, "12345008");
    EXPECT_EQ(LogLines().back(), "INFO [CDeviceInfo::Initialize][D] SYS Version:    1.00.00.0008");
    device_.SetStatus(DeviceStatus::kRegistrationNow);
    EXPECT_EQ(Logged("INFO [CDeviceInfo::SetStatus] Status changed to \"Registration now\""), 1);
    EXPECT_EQ(device_.GetStatusChar(), 'X');
}

// Fault: reading the versions again in the middle of an update undoes what the update noted.
TEST_F(DeviceInfoTest, RefreshingLeavesTheUpdateAlone) {
    device_.Initialize();
    device_.SetStatus(DeviceStatus::kUpdating);
    device_.SetUpdateFlag(true);
    ImageInfo& app = device_.GetImageInfo()[kAppImage];
    app.IsFile = app.NeedUpdate = true;
    app.FileSize = app.Download = 9;
    const QENFx::Common::Version offered("2.0.0.0");
    device_.SetNewVersion(kAppImage, offered);
    WriteFile("/data/device/versions.cfg", "APP=1.2.3.4\n");
    device_.RefreshVersions();
    EXPECT_EQ(device_.GetAppVersion(), "1.2.3.4");
    EXPECT_EQ(device_.GetCurrentVersion(kAppImage), QENFx::Common::Version("1.2.3.4"));
    EXPECT_EQ(device_.GetNewVersion(kAppImage), offered);
    EXPECT_TRUE(app.IsFile && app.NeedUpdate && app.FileSize == 9 && app.Download == 9 && device_.GetUpdateFlag());
    EXPECT_EQ(device_.GetStatusChar(), 'U');
    device_.ClearImageInfo();
    EXPECT_FALSE(app.IsFile || app.NeedUpdate || app.FileSize != 0 || app.Download != 0 || device_.GetUpdateFlag());
    EXPECT_EQ(device_.GetNewVersion(kAppImage), offered);
}
