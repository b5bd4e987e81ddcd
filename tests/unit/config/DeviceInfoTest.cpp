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
    for (const bool human : {true, false}) {
        WriteFile("/data/device/nv.cfg", human ? "sn=1\n" : "model_type=human\n");
        device_.Initialize();
        const ImageInfo& app = device_.GetImageInfo()[ImageId::kApp];
        EXPECT_EQ(app.Magic, human ? "ZN6A" : "ZV6A");
        EXPECT_EQ(app.ServerPath, human ? "/n62/zel_app.n62.bin" : "/n62v_vorn/zel_app.n62v.bin");
    }
}

// Fault: reading the versions again in the middle of an update undoes what the update noted.
TEST_F(DeviceInfoTest, RefreshingLeavesTheUpdateAlone) {
    device_.Initialize();
    device_.SetStatus(DeviceStatus::kUpdating);
    device_.SetUpdateFlag(true);
    ImageInfo& app = device_.GetImageInfo()[ImageId::kApp];
    app.IsFile = app.NeedUpdate = true;
    app.FileSize = app.Download = 9;
    const QENFx::Common::Version offered("2.0.0.0");
    app.SetNewVersion(offered);
    WriteFile("/data/device/versions.cfg", "APP=1.2.3.4\n");
    device_.RefreshVersions();
    EXPECT_EQ(device_.GetAppVersion(), "1.2.3.4");
    EXPECT_EQ(app.GetCurrentVersion(), QENFx::Common::Version("1.2.3.4"));
    EXPECT_EQ(app.GetNewVersion(), offered);
    EXPECT_TRUE(app.IsFile && app.NeedUpdate && app.FileSize == 9 && app.Download == 9 && device_.GetUpdateFlag());
    EXPECT_EQ(device_.GetStatusChar(), 'U');
    device_.ClearImageInfo();
    EXPECT_FALSE(app.IsFile || app.NeedUpdate || app.FileSize != 0 || app.Download != 0 || device_.GetUpdateFlag());
    EXPECT_EQ(app.GetNewVersion(), offered);
}
