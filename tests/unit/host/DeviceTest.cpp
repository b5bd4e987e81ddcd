#include <sys/mount.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>

#include "TempDir.h"
#include "platform/upgrade.h"

using HostTest::ReadFile;
using HostTest::ReadLines;
using HostTest::WriteFile;

namespace {

class DeviceTest : public testing::Test {
protected:
    DeviceTest() { ::setenv("ZEL_DEVICE_DIR", dir_.path().c_str(), 1); }
    ~DeviceTest() override {
        // A failed test must not leave its mount to the machine.
        while (::umount2((dir_ / "mnt/usb").c_str(), MNT_DETACH) == 0) {
        }
        ::unsetenv("ZEL_DEVICE_DIR");
    }

    HostTest::TempDir dir_;
};

// Faults: versions given in the order of the image ids, a text that runs into its neighbour, one of two recorded at
// once lost, a version that breaks the file.
TEST_F(DeviceTest, Versions) {
    char all[8][16];
    WriteFile(dir_ / "versions.cfg", "XML=7.00.00.0001\nSYS=" + std::string(40, '1') + "\n");
    ASSERT_EQ(nv_get_img_version_all(all[0]), 0);
    EXPECT_STREQ(all[0], "0.00.00.0000");
    EXPECT_EQ(std::string(all[1]), std::string(15, '1'));
    EXPECT_STREQ(all[7], "7.00.00.0001");

    {
        std::vector<std::jthread> threads;
        for (int id = 0; id < 8; ++id) {
            threads.emplace_back([id] {
                char text[16] = "1.00.00.000";
                text[11] = static_cast<char>('0' + id);
                EXPECT_EQ(nv_set_img_version(id, text, 0), 0);
            });
        }
    }
    const std::string versions =
        "BOOT=1.00.00.0000\nKERNEL=1.00.00.0001\nROOTFS=1.00.00.0002\nAPP=1.00.00.0003\n"
        "QTE=1.00.00.0004\nDSP=1.00.00.0005\nXML=1.00.00.0006\nSYS=1.00.00.0007\n";
    EXPECT_EQ(ReadFile(dir_ / "versions.cfg"), versions);
    ASSERT_EQ(nv_get_img_version_all(all[0]), 0);
    std::string ids;
    for (const auto& text : all) {
        ids += text[11];
    }
    EXPECT_EQ(ids, "37012456");

    char breaking[16] = "1\nSYS=9";
    EXPECT_NE(nv_set_img_version(0, breaking, 0), 0);
    EXPECT_NE(nv_set_img_version(8, "1.00.00.0000\0\0\0", 0), 0);
    WriteFile(dir_ / "faults.cfg", "nv_set_img_version.3=fail\n");
    EXPECT_NE(nv_set_img_version(3, "9.00.00.0000\0\0\0", 0), 0);
    EXPECT_EQ(ReadFile(dir_ / "versions.cfg"), versions);
    std::filesystem::remove(dir_ / "faults.cfg");
    EXPECT_EQ(nv_set_img_version(3, "1234567890123456", 0), 0);
    EXPECT_EQ(ReadLines(dir_ / "versions.cfg")[3], "APP=1234567890123456");
}

/// Mounts, looks, unmounts, and mounts again without the stick.
void UseStick(const HostTest::TempDir& dir, const std::string& point) {
    EXPECT_NE(checkUsbConnect(), 1);
    const std::string file = point + "file";
    EXPECT_NE(usbMount(1, point.c_str()), 1);
    EXPECT_EQ(ReadFile(file), "on the stick");
    EXPECT_NE(usbMount(1, point.c_str()), 1);
    EXPECT_EQ(usbMount(0, point.c_str()), 0);
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_TRUE(std::filesystem::is_directory(point));
    EXPECT_EQ(ReadFile(dir / "usb/file"), "on the stick");

    std::filesystem::rename(dir / "usb", dir / "pulled");
    EXPECT_EQ(checkUsbConnect(), 1);
    EXPECT_EQ(usbMount(1, point.c_str()), 1);
    std::filesystem::rename(dir / "pulled", dir / "usb");
    WriteFile(dir / "faults.cfg", "usbMount=fail");
    EXPECT_EQ(usbMount(1, point.c_str()), 1);
    std::filesystem::remove(dir / "faults.cfg");
}

// Faults: a stick that cannot be reached with or without the right to mount, one mounted twice over, one left in place
// after unmounting, a directory with somebody's files removed to make place.
TEST_F(DeviceTest, UsbStick) {
    EXPECT_EQ(checkUsbConnect(), 1);
    std::filesystem::create_directory(dir_ / "usb");
    WriteFile(dir_ / "usb/file", "on the stick");
    UseStick(dir_, dir_ / "mnt/usb/");

    // Once more as somebody who may not mount, who is then the owner of everything here.
    const uid_t user = ::getuid() == 0 ? 65534 : ::getuid();
    ASSERT_EQ(::chown(dir_.path().c_str(), user, ::getgid()), 0);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(dir_.path())) {
        ASSERT_EQ(::chown(entry.path().c_str(), user, ::getgid()), 0);
    }
    const pid_t child = HostTest::InChild([&] {
        if (::setresuid(user, user, user) != 0) {
            ::_exit(2);
        }
        UseStick(dir_, dir_ / "mnt/link/");
        std::filesystem::create_directory(dir_ / "full");
        WriteFile(dir_ / "full/mine", "mine");
        EXPECT_EQ(usbMount(1, (dir_ / "full/").c_str()), 1);
        EXPECT_EQ(ReadFile(dir_ / "full/mine"), "mine");
        ::_exit(HasFailure() ? 1 : 0);
    });
    EXPECT_EQ(HostTest::WaitFor(child), 0);
}

}  // namespace
