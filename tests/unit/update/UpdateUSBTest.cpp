#include <unistd.h>

#include <filesystem>

#include "UpdateBench.h"
#include "UpdateFiles.h"

namespace UpdateTest {

namespace {

constexpr char kAppVersion[] = "2.00.00.0000";
constexpr char kXmlVersion[] = "2.00.00.0006";

class UpdateUSB : public UpdateBench {
protected:
    UpdateUSB() : app_(ImageData(200000, 1)), xml_(ZipArchive("new")) {
        Put("zel_app.n62.bin", AppFile(kAppVersion, package_.version, kXmlVersion, app_));
        Put("zel_xml.n62.bin", File("ZN6X", kXmlVersion, xml_));
        Put("zel_sys.n62.bin", package_.MakeFile());
    }

    void Put(const std::string& name, const std::string& content) { WriteFile("/data/device/usb/" + name, content); }
    void Remove(const std::string& name) { std::filesystem::remove("/data/device/usb/" + name); }
    void Fault(const std::string& line) { WriteFile("/data/device/faults.cfg", line + "\n"); }
    std::string Calls() { return ReadFile("/data/device/calls.log"); }
    static std::string Written(int image) { return ReadFile("/data/device/images/" + std::to_string(image) + ".img"); }

    void ExpectUpdated() {
        const auto outcomes = TakeOutcomes();
        ASSERT_EQ(outcomes.size(), 2U);
        EXPECT_EQ(outcomes[1], kComplete);
        EXPECT_TRUE(Switched());
        EXPECT_EQ(InstalledVersion("APP"), kAppVersion);
        EXPECT_EQ(InstalledVersion("ROOTFS"), "2.00.00.0005");
        EXPECT_EQ(History().size(), 7U);
    }

    Package package_;
    std::string app_;
    std::string xml_;
};

// Faults: an image at a wrong place or with wrong bytes, versions or history before the switch, an image left out of
// the reports, progress that stops short of the end, the archive in the running bank, the calibration lost.
TEST_F(UpdateUSB, WholeUpdate) {
    Put("zel_dsp.n62.bin", File("ZN6D", "3.00.00.0000", ImageData(10, 5)));
    Put("zel_logo.n62v.bin", "logo");
    WriteFile("/data/xml_bank/2nd/chip_cal/lot", "calibration");
    EXPECT_EQ(Run(0, 1), 0);

    const auto reports = TakeReports();
    ASSERT_GE(reports.size(), 3U);
    std::string entries;
    for (const auto& [image, version] :
         {std::pair<char, std::string>{3, kAppVersion}, {5, "3.00.00.0000"}, {6, kXmlVersion}, {7, package_.version}}) {
        entries += std::string{image, 16, 0} + version + std::string(16 - version.size(), '\0');
    }
    EXPECT_EQ(reports.front(), std::string("\x03\x04") + entries);
    EXPECT_EQ(reports.back(), kComplete);
    EXPECT_EQ(reports[reports.size() - 2], std::string("\x04\x04\x03\x64\x05\x64\x06\x64\x07\x64"));

    EXPECT_TRUE(Written(0) == package_.boot);
    EXPECT_TRUE(Written(1) == package_.kernel);
    EXPECT_TRUE(Written(2) == package_.rootfs);
    EXPECT_EQ(Written(3), ReadFile("/data/device/usb/zel_app.n62.bin").substr(40));
    EXPECT_TRUE(Written(4) == package_.qte);
    EXPECT_EQ(ReadFile("/tmp/zel_dsp.out"), ImageData(10, 5));
    EXPECT_EQ(ReadFile("/data/xml_bank/2nd/settings.xml"), "new");
    EXPECT_EQ(ReadFile("/data/xml_bank/2nd/chip_cal_bak/lot"), "calibration");
    EXPECT_FALSE(std::filesystem::exists("/data/xml_bank/1st/settings.xml"));

    const std::string calls = Calls();
    EXPECT_NE(calls.find("upImgWrite 1 0 131072\nupImgWrite 1 131072 1\n"), std::string::npos);
    EXPECT_LT(calls.rfind("upImgWrite"), calls.find("changeUpActiveIndex"));
    EXPECT_LT(calls.find("changeUpActiveIndex"), calls.find("nv_set_img_version 0 2.00.00.0001 0"));
    EXPECT_LT(calls.find("usbMount 0"), calls.find("upImgWrite"));

    const auto history = History();
    ASSERT_EQ(history.size(), 8U);
    EXPECT_EQ(history[0], "Boot|1.00.00.0000|2.00.00.0001|USB");
    EXPECT_EQ(history[5], "|0.00.00.0000|3.00.00.0000|USB");
    EXPECT_EQ(history[7], "System|1.00.00.0000|2.00.00.0002|USB");
}

// Faults: something written when it was only asked, equal versions reported as news, an update of equal versions
// refused, a boot loader written without need.
TEST_F(UpdateUSB, AskedThenUpdatedAgain) {
    EXPECT_EQ(Run(1, 1), 0);
    EXPECT_EQ(TakeOutcomes().size(), 1U);
    ExpectUntouched();
    EXPECT_EQ(Calls().find("upImgWrite"), std::string::npos);

    ASSERT_EQ(Run(0, 1), 0);
    ExpectUpdated();
    EXPECT_EQ(Run(1, 1), 0);
    EXPECT_EQ(TakeReports(), std::vector<std::string>{kNothing});

    std::filesystem::remove("/data/device/images/0.img");
    ASSERT_EQ(Run(0, 1), 0);
    EXPECT_TRUE(Written(0).empty());
    const auto reports = TakeReports();
    EXPECT_EQ(reports[reports.size() - 2], std::string("\x04\x03\x03\x64\x06\x64\x07\x64"));
    EXPECT_EQ(History().size(), 13U);
}

// Faults: a stick that is not there or cannot be mounted, taken for an empty one; an endless search.
TEST_F(UpdateUSB, StickMissing) {
    Fault("usbMount=fail");
    EXPECT_EQ(Run(0, 1), 0);
    EXPECT_EQ(TakeReports(), std::vector{Failure(0x00204014)});
    std::filesystem::remove_all("/data/device/usb");
    std::filesystem::remove("/data/device/calls.log");
    EXPECT_EQ(Run(0, 1), 0);
    EXPECT_EQ(TakeReports(), std::vector{Failure(0x00204014)});
    EXPECT_NE(Calls().find("checkUsbConnect\ncheckUsbConnect\ncheckUsbConnect\n"), std::string::npos);
    EXPECT_EQ(Calls().find("usbMount"), std::string::npos);
    ExpectUntouched();
}

// Faults: a file that is not in order written, an image missing from a release, the stick left mounted; after each the
// good stick must work.
TEST_F(UpdateUSB, BadFilesThenGoodOnes) {
    const std::string sys = package_.MakeFile();
    const auto noSections = [&](const std::string& from, const std::string& to) {
        std::string bad = sys;
        return bad.replace(bad.find(from, 4), 4, to);
    };
    struct Case {
        const char* name;
        std::string content;
        std::uint32_t code;
        bool early;  // nothing is announced
    };
    const Case cases[] = {
        {"zel_sys.n62.bin", "", 0x00204015, true},
        {"zel_sys.n62.bin", "ZV6S" + sys.substr(4), 0x00204015, true},
        {"zel_sys.n62.bin", Header("ZN6S", -5, package_.version), 0x00204015, true},
        {"zel_xml.n62.bin", File("ZN6X", "9.00.00.0000", xml_), 0x00204018, true},
        {"zel_sys.n62.bin", noSections("ZN6B", "ZN6?"), 0x00204015, false},
        {"zel_sys.n62.bin", noSections("ZN6B", "ZN6S"), 0x00204015, false},
        {"zel_sys.n62.bin", sys.substr(0, sys.size() - 1), 0x00204015, false},
    };
    for (const Case& test : cases) {
        const std::string good = ReadFile(std::string("/data/device/usb/") + test.name);
        Put(test.name, test.content);
        EXPECT_EQ(Run(0, 1), 0);
        const auto outcomes = TakeOutcomes();
        EXPECT_EQ(outcomes.size(), test.early ? 1U : 2U) << test.content.substr(0, 4);
        EXPECT_EQ(outcomes.back(), Failure(test.code)) << test.content.substr(0, 4);
        ExpectUntouched();
        EXPECT_TRUE(std::filesystem::is_empty("/mnt/usb"));
        Put(test.name, good);
    }
    EXPECT_EQ(Run(0, 1), 0);
    ExpectUpdated();
}

// Faults: a failed write that is passed over; history, versions or boot partition touched after it; a worker that
// leaves something behind which stops the next one.
TEST_F(UpdateUSB, DeviceFailsAtEveryImage) {
    struct Case {
        const char* fault;
        std::uint32_t code;
    };
    const Case cases[] = {
        {"upImgWrite.0=fail@0", 0x00204016},      {"upImgWrite.1=fail@131072", 0x00204016},
        {"upImgWrite.2=fail@131072", 0x00204016}, {"upImgWrite.3=fail@0", 0x00204016},
        {"upImgWrite.4=fail@0", 0x00204016},      {"changeUpActiveIndex=fail", 0x00204017},
    };
    for (const Case& test : cases) {
        Fault(test.fault);
        EXPECT_EQ(Run(0, 1), -1);
        EXPECT_EQ(TakeOutcomes().back(), Failure(test.code)) << test.fault;
        ExpectUntouched();
    }
    // The versions before the one that fails stay recorded; the update itself is done.
    Fault("nv_set_img_version.3=fail");
    EXPECT_EQ(Run(0, 1), 0);
    EXPECT_EQ(TakeOutcomes().back(), kComplete);
    EXPECT_EQ(InstalledVersion("ROOTFS"), "2.00.00.0005");
    EXPECT_EQ(InstalledVersion("APP"), "1.00.00.0000");

    Fault("");
    EXPECT_EQ(Run(0, 1), 0);
    EXPECT_EQ(TakeOutcomes().back(), kComplete);
    EXPECT_EQ(InstalledVersion("SYS"), package_.version);
}

// Faults: a stick with DSP alone refused, the boot partition switched for it, an unknown method that leaves the status.
TEST_F(UpdateUSB, DSPAloneAndUnknownMethod) {
    for (const char* name : {"zel_app.n62.bin", "zel_sys.n62.bin"}) {
        Remove(name);
    }
    EXPECT_EQ(Run(0, 1), 0);
    EXPECT_EQ(TakeReports(), std::vector{Failure(0x00204015)});
    Remove("zel_xml.n62.bin");
    Put("zel_dsp.n62.bin", File("ZN6D", "3.00.00.0000", "dsp"));
    EXPECT_EQ(Run(0, 1), 0);
    EXPECT_EQ(TakeOutcomes().back(), kComplete);
    EXPECT_FALSE(Switched());
    EXPECT_EQ(InstalledVersion("DSP"), "3.00.00.0000");

    EXPECT_EQ(Run(0, 5), -1);
    EXPECT_TRUE(TakeReports().empty());
    EXPECT_FALSE(std::filesystem::exists("/tmp/zel_dsp.out"));
}

}  // namespace

}  // namespace UpdateTest
