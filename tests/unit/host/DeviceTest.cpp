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

// Faults: a missing line read as another's value, NULL where the callers need a text, one thread's text overwritten by
// another's question.
TEST_F(DeviceTest, Identity) {
    EXPECT_STREQ(nv_get_value("sn"), "");
    EXPECT_EQ(nv_get_value("model_type"), nullptr);
    WriteFile(dir_ / "nv.cfg", "snx=1\nsn=S 1=2 \r\nmodel_type=Veterinary");
    const char* serial = nv_get_value("sn");
    EXPECT_STREQ(nv_get_value("model_type"), "Veterinary");
    EXPECT_STREQ(nv_get_value("project"), "");
    EXPECT_EQ(nv_get_value("other"), nullptr);
    EXPECT_EQ(nv_get_value(nullptr), nullptr);
    WriteFile(dir_ / "nv.cfg", "sn=" + std::string(1000, '9'));
    std::jthread([] { EXPECT_EQ(std::string(nv_get_value("sn")).substr(0, 3), "999"); }).join();
    EXPECT_STREQ(serial, "S 1=2");
}

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

// Faults: a block at a wrong place, a block that cuts what lies behind it, the tail of a longer image left behind a
// shorter one, a fault that hits another block or image.
TEST_F(DeviceTest, ImageBlocks) {
    EXPECT_EQ(upImgWrite(3, "aaaa", 0, 4), 4);
    EXPECT_EQ(upImgWrite(3, "bbbb", 8, 4), 4);
    EXPECT_EQ(upImgWrite(3, "cc", 4, 2), 2);
    EXPECT_EQ(ReadFile(dir_ / "images/3.img"), std::string("aaaacc\0\0bbbb", 12));
    EXPECT_EQ(upImgWrite(3, "new", 0, 3), 3);
    EXPECT_EQ(ReadFile(dir_ / "images/3.img"), "new");

    WriteFile(dir_ / "faults.cfg", "upImgWrite.3=fail@4\nupImgWrite.3=fail@8\nupImgWrite.delay_ms=30\n");
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_LT(upImgWrite(3, "x", 4, 1), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(30));
    EXPECT_LT(upImgWrite(3, "x", 8, 1), 0);
    EXPECT_EQ(upImgWrite(2, "x", 4, 1), 1);
    EXPECT_EQ(upImgWrite(3, "y", 3, 1), 1);
    EXPECT_EQ(ReadFile(dir_ / "images/3.img"), "newy");
    EXPECT_LT(upImgWrite(8, "x", 0, 1), 0);
    EXPECT_LT(upImgWrite(-1, "x", 0, 1), 0);
    EXPECT_LT(upImgWrite(0, nullptr, 0, 1), 0);
    {
        const HostTest::FullDisk full(50000);
        EXPECT_LT(upImgWrite(0, std::string(60000, 'x').data(), 0, 60000), 0);
    }
}

// Faults: the same partition chosen again, a switch done although it is said to have failed.
TEST_F(DeviceTest, PartitionSwitch) {
    WriteFile(dir_ / "faults.cfg", "changeUpActiveIndex=fail");
    EXPECT_NE(changeUpActiveIndex(), 100);
    EXPECT_FALSE(std::filesystem::exists(dir_ / "next"));
    std::filesystem::remove(dir_ / "faults.cfg");
    EXPECT_EQ(getActiveIndex(), 0);
    EXPECT_EQ(changeUpActiveIndex(), 100);
    EXPECT_EQ(ReadFile(dir_ / "next"), "1");
    WriteFile(dir_ / "active", "1\n");
    EXPECT_EQ(getActiveIndex(), 1);
    EXPECT_EQ(changeUpActiveIndex(), 100);
    EXPECT_EQ(ReadFile(dir_ / "next"), "0");
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

// Faults: a call that is not recorded, its data in the record, lines of several threads mixed, a text that forges a
// line.
TEST_F(DeviceTest, CallsAreRecorded) {
    const std::string block(131072, 'x');
    checkUsbConnect();
    usbMount(0, (dir_ / "none/").c_str());
    upImgWrite(3, block.data(), 131072, 131072);
    upImgWrite(9, block.data(), 0, 1);
    getActiveIndex();
    changeUpActiveIndex();
    nv_get_value("sn");
    nv_get_value("a\nchangeUpActiveIndex");
    char all[8][16];
    nv_get_img_version_all(all[0]);
    nv_set_img_version(3, "1.02.03.0004\0\0\0", 0);
    EXPECT_EQ(ReadLines(dir_ / "calls.log"),
              (std::vector<std::string>{"checkUsbConnect", "usbMount 0 " + (dir_ / "none/"),
                                        "upImgWrite 3 131072 131072", "upImgWrite 9 0 1", "getActiveIndex",
                                        "changeUpActiveIndex", "nv_get_value sn", "nv_get_value a?changeUpActiveIndex",
                                        "nv_get_img_version_all", "nv_set_img_version 3 1.02.03.0004 0"}));

    std::filesystem::remove(dir_ / "calls.log");
    {
        std::vector<std::jthread> threads;
        for (unsigned thread = 0; thread < 4; ++thread) {
            threads.emplace_back([] {
                for (int i = 0; i < 100; ++i) {
                    nv_get_value("project");
                }
            });
        }
    }
    const auto lines = ReadLines(dir_ / "calls.log");
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "nv_get_value project"), 400);
}

}  // namespace
