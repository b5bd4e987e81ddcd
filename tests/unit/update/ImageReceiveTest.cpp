#include <sys/mount.h>

#include <filesystem>

#include "UpdateBench.h"
#include "UpdateFiles.h"
#include "process/update/CImageReceiver.h"

namespace UpdateTest {

namespace {

using Packets = std::vector<CFakePC::Packet>;

const CFakePC::Packet kReceived{0x0A1D, ""};
const CFakePC::Packet kRefused{0x0AFF, std::string("\x00\x17", 2)};

constexpr char kAppPath[] = "/tmp/zel_app.n62.raw";

class ImageReceive : public UpdateBench {
protected:
    ImageReceive() : pc_(std::make_shared<CFakePC>()) { device_->SetSession(pc_); }

    /// The files in /tmp that this process has open.
    static int OpenFiles() {
        int count = 0;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code gone;
            const std::string target = std::filesystem::read_symlink(entry, gone).string();
            count += target.starts_with("/tmp/zel_") ? 1 : 0;
        }
        return count;
    }

    std::shared_ptr<CFakePC> pc_;
};

// Faults: the header stored with the data, a piece lost or counted twice, an image counted whole before it is on disk.
TEST_F(ImageReceive, OnePacketAndMany) {
    Push(pc_, File("ZN6A", "2.00.00.0000", "abc"), true);
    EXPECT_EQ(pc_->TakeSent(), Packets{kReceived});
    EXPECT_EQ(ReadFile(kAppPath), "abc");
    EXPECT_EQ(Image(kAppImage).Download, 3);
    EXPECT_EQ(device_->GetNewVersion(kAppImage).getVersion(), "2.00.00.0000");

    const std::string data = ImageData(100000, 7);
    PushFile(pc_, File("ZN6A", "3.00.00.0000", data));
    EXPECT_EQ(pc_->TakeSent(), Packets{kReceived});
    EXPECT_TRUE(ReadFile(kAppPath) == data);
    EXPECT_EQ(Image(kAppImage).Download, 100000);
    EXPECT_EQ(OpenFiles(), 0);
}

// Faults: a bad image written, its rest taken for a new image, more than one notice for it, bytes written beyond what
// was announced; after each a good image must come through.
TEST_F(ImageReceive, BadImagesThenGoodOnes) {
    const std::string good = File("ZN6A", "2.00.00.0000", "abcdef");
    struct Case {
        std::string first;
        std::string second;
    };
    const Case cases[] = {
        {good.substr(0, 39), "x"},                           // no whole header
        {File("ZV6A", "2.00.00.0000", "abc"), good},         // the other model's
        {Header("ZN6A", -1, "2.00.00.0000"), "x"},           // a negative size
        {Header("ZN6A", 7, "2.00.00.0000") + "abc", "def"},  // less than announced
        {Header("ZN6A", 5, "2.00.00.0000") + "abc", "def"},  // more than announced
        {Header("ZN6A", 2, "2.00.00.0000") + "abc", "def"},
        {good, good},  // the header repeated in the middle
    };
    for (const Case& test : cases) {
        Push(pc_, test.first, false);
        Push(pc_, test.second, true);
        EXPECT_EQ(pc_->TakeSent(), Packets{kRefused}) << test.first.size();
        EXPECT_TRUE(Image(kAppImage).FileSize == 0 || Image(kAppImage).Download < Image(kAppImage).FileSize);
        EXPECT_LE(ReadFile(kAppPath).size(), static_cast<std::size_t>(Image(kAppImage).FileSize));
        EXPECT_EQ(OpenFiles(), 0);
        Push(pc_, good, true);
        EXPECT_EQ(pc_->TakeSent(), Packets{kReceived});
        EXPECT_EQ(ReadFile(kAppPath), "abcdef");
        device_->ClearImageInfo();
        std::filesystem::remove(kAppPath);
    }
}

// Faults: two sessions writing into one file, a session that ended keeping the file open or its place taken.
TEST_F(ImageReceive, TwoSessions) {
    const std::string file = File("ZN6A", "2.00.00.0000", ImageData(50000, 1));
    auto other = std::make_shared<CFakePC>();
    Push(pc_, file.substr(0, 20000), false);
    Push(other, file.substr(0, 20000), false);
    EXPECT_EQ(other->TakeSent(), Packets{kRefused});
    Push(pc_, file.substr(20000), true);
    EXPECT_EQ(pc_->TakeSent(), Packets{kReceived});
    EXPECT_TRUE(ReadFile(kAppPath) == file.substr(40));

    Push(other, file.substr(0, 20000), false);
    EXPECT_EQ(OpenFiles(), 1);
    RMUP::Process::CImageReceiver::GetInstance()->SessionEnded(pc_);
    EXPECT_EQ(OpenFiles(), 1);
    RMUP::Process::CImageReceiver::GetInstance()->SessionEnded(other);
    EXPECT_EQ(OpenFiles(), 0);

    Push(other, file.substr(0, 20000), false);
    other.reset();
    PushFile(pc_, file);
    EXPECT_EQ(pc_->TakeSent(), Packets{kReceived});
}

// Faults: a section taken by its place, a section of another model that stops the split or is written, the package
// overwritten while it is read, a package counted whole that is not.
TEST_F(ImageReceive, SYSPackage) {
    Package package;
    PushFile(pc_, package.MakeFile());
    EXPECT_EQ(pc_->TakeSent(), Packets{kReceived});
    EXPECT_TRUE(ReadFile("/tmp/zel_kernel.n62.raw") == package.kernel);
    EXPECT_TRUE(ReadFile("/tmp/zel_boot.n62.raw") == package.boot);
    EXPECT_TRUE(ReadFile("/tmp/zel_rootfs.n62.raw") == package.rootfs);
    EXPECT_TRUE(ReadFile("/tmp/zel_qte.n62.raw") == package.qte);
    EXPECT_TRUE(Image(kQTEImage).IsFile && Image(kQTEImage).NeedUpdate);
    EXPECT_EQ(Image(kSYSImage).Download, Image(kSYSImage).FileSize);
    EXPECT_EQ(Image(kRootFSImage).Download, 262144);

    for (const char* magic : {"ZV6K", "ZN6S"}) {
        std::string strange = package.MakeFile();
        strange.replace(40, 4, magic);
        PushFile(pc_, strange);
        EXPECT_EQ(pc_->TakeSent(), (Packets{kReceived, kReceived})) << magic;
        EXPECT_TRUE(ReadFile("/tmp/zel_sys.n62.raw") == strange.substr(40));
        EXPECT_EQ(Image(kSYSImage).Download, Image(kSYSImage).FileSize);
    }
    const std::string sections = package.Sections();
    for (const std::string& bad : {sections.substr(0, sections.size() - 1), sections.substr(0, 60),
                                   Header("ZN6K", -1, "2.00.00.0000") + std::string(200, 'x')}) {
        PushFile(pc_, File("ZN6S", "2.00.00.0000", bad));
        EXPECT_EQ(pc_->TakeSent(), (Packets{kReceived, kRefused}));
        EXPECT_LT(Image(kSYSImage).Download, Image(kSYSImage).FileSize);
        EXPECT_EQ(OpenFiles(), 0);
    }
}

// Faults: a short file taken for whole when the device is full, at the flush of the last piece as well.
TEST_F(ImageReceive, DeviceFull) {
    for (const std::size_t size : {2000000U, 100000U}) {
        ASSERT_EQ(mount("none", "/tmp", "tmpfs", 0, "size=64k"), 0) << strerror(errno);
        PushFile(pc_, File("ZN6A", "2.00.00.0000", ImageData(size, 1)));
        EXPECT_EQ(pc_->TakeSent(), Packets{kRefused});
        EXPECT_LT(Image(kAppImage).Download, Image(kAppImage).FileSize);
        ASSERT_EQ(umount("/tmp"), 0) << strerror(errno);
    }
}

}  // namespace

}  // namespace UpdateTest
