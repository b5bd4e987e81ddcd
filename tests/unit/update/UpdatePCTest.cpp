#include <chrono>
#include <filesystem>
#include <thread>

#include "UpdateBench.h"
#include "UpdateFiles.h"
#include "process/CUpdateCommand.h"

namespace UpdateTest {

namespace {

using std::chrono::steady_clock;

class UpdatePC : public UpdateBench {
protected:
    UpdatePC() : pc_(ConnectPC()) {
        xml_ = File("ZN6X", "2.00.00.0006", ZipArchive("new"));
        app_ = File("ZN6A", "2.00.00.0000", ImageData(200000, 1));
    }

    /// What 0x0A19 announces: SYS, APP, DSP and XML or some of them.
    void Announce(std::initializer_list<int> images) {
        device_->ClearImageInfo();
        for (const int image : images) {
            Image(image).IsFile = true;
            Image(image).NeedUpdate = true;
        }
    }

    void Cancel() {
        CPCMsg notice = Message(0x0AFF, std::string("\x00\x13", 2));
        CUpdateCommand().ProcessUpdateCancel(notice);
    }

    std::shared_ptr<CFakePC> pc_;
    Package package_;
    std::string xml_;
    std::string app_;
};

// Faults: a push that ends before the package is split, parts of the package not written, the announcement forgotten
// by the worker, a receive file of an earlier push still open.
TEST_F(UpdatePC, PushedByThePC) {
    Push(pc_, app_.substr(0, 1000), false);
    Announce({kSYSImage, kAppImage, kXMLImage});
    std::jthread pushing;
    pc_->onPacket = [&](const CFakePC::Packet& packet) {
        if (packet.first == 0x0A1A) {
            EXPECT_EQ(packet.second, "\x04");
            pushing = std::jthread([this] {
                for (const std::string& file : {xml_, package_.MakeFile(), app_}) {
                    PushFile(pc_, file);
                }
            });
        }
    };
    EXPECT_EQ(Run(0, 4), 0);
    EXPECT_EQ(TakeReports().back(), kComplete);
    EXPECT_TRUE(Switched());
    EXPECT_TRUE(ReadFile("/data/device/images/1.img") == package_.kernel);
    EXPECT_EQ(ReadFile("/data/xml_bank/2nd/settings.xml"), "new");
    const auto history = History();
    ASSERT_EQ(history.size(), 7U);
    EXPECT_EQ(history[3], "Application|1.00.00.0000|2.00.00.0000|From PC");
}

// Faults: images asked for in another order or all at once, an answer missed, a DSP image that never came recorded as
// installed.
TEST_F(UpdatePC, AskedByTheDevice) {
    std::jthread answering;
    std::string asked;
    pc_->onPacket = [&](const CFakePC::Packet& packet) {
        if (packet.first == 0x0A1E) {
            EXPECT_EQ(packet.second, "\x03\xE0");
            answering = std::jthread([this] {
                std::string versions;
                for (std::string version : {"2.0.0.2", "2.0.0.0", "9.0.0.0", "2.0.0.6"}) {
                    version.resize(16);
                    versions += version;
                }
                CPCMsg message = Message(0x0A1F, "\x01\xE0" + versions);
                CUpdateCommand().ProcessUpdateInfoRes(message);
            });
        } else if (packet.first == 0x0A1B) {
            asked.push_back(packet.second[0]);
            const std::string file = packet.second[0] == 0x08   ? package_.MakeFile()
                                     : packet.second[0] == 0x10 ? app_
                                                                : xml_;
            answering = std::jthread([this, file] { PushFile(pc_, file); });
        }
    };
    EXPECT_EQ(Run(0, 2), 0);
    EXPECT_EQ(asked, "\x08\x10\x40");
    EXPECT_EQ(TakeReports().back(), kComplete);
    EXPECT_EQ(InstalledVersion("XML"), "2.00.00.0006");
    EXPECT_EQ(InstalledVersion("DSP"), "1.00.00.0000");
    EXPECT_EQ(History().size(), 7U);
}

// Faults: a cancel, a stall or a lost PC that is not noticed or noticed twice, an old cancel that ends a new update, a
// receive file left open, image data taken while nobody waits for it.
TEST_F(UpdatePC, GivenUp) {
    Announce({kAppImage});
    pc_->onPacket = [this](const CFakePC::Packet& packet) {
        if (packet.first == 0x0A1A) {
            Push(pc_, app_.substr(0, 1000), false);
            Cancel();
        }
    };
    EXPECT_EQ(Run(0, 4), 0);
    EXPECT_EQ(TakeOutcomes(), std::vector{Failure(0x00204013)});
    EXPECT_FALSE(device_->GetUpdateFlag());

    // What is left of the image belongs to nothing any more.
    pc_->onPacket = nullptr;
    pc_->TakeSent();
    Push(pc_, app_.substr(1000, 1000), true);
    EXPECT_EQ(pc_->TakeSent(), (std::vector<CFakePC::Packet>{{0x0AFF, std::string("\x00\x17", 2)}}));

    Cancel();
    Announce({kAppImage});
    const auto begin = steady_clock::now();
    EXPECT_EQ(Run(0, 4), 0);
    EXPECT_EQ(TakeOutcomes(), std::vector{Failure(0x00204013)});
    EXPECT_GE(steady_clock::now() - begin, std::chrono::seconds(4));

    device_->SetSession(nullptr);
    EXPECT_EQ(Run(0, 2), 0);
    EXPECT_EQ(TakeOutcomes(), std::vector{Failure(0x00204013)});
    ExpectUntouched();
}

// Faults: an offer of nothing new taken for a lost PC, reported twice, or waited on for ever.
TEST_F(UpdatePC, NothingNewer) {
    std::jthread answering;
    pc_->onPacket = [&](const CFakePC::Packet& packet) {
        if (packet.first == 0x0A1E) {
            answering = std::jthread([this] {
                std::string version = "1.0.0.0";
                version.resize(16);
                CPCMsg message = Message(0x0A1F, "\x01\x60" + version + version + version);
                CUpdateCommand().ProcessUpdateInfoRes(message);
            });
        }
    };
    EXPECT_EQ(Run(0, 2), 0);
    EXPECT_EQ(TakeReports(), std::vector<std::string>{kNothing});
}

// Faults: image data or an announcement from the PC that changes an update from another source.
TEST_F(UpdatePC, KeptOutOfOtherUpdates) {
    WriteFile("/data/device/stick/zel_dsp.n62.bin", File("ZN6D", "3.00.00.0000", "dsp"));
    std::jthread running([this] { Run(0, 1); });
    // The worker looks for a stick for three seconds.
    while (ReadFile("/data/device/calls.log").find("checkUsbConnect") == std::string::npos) {
        std::this_thread::yield();
    }
    Push(pc_, File("ZN6D", "4.00.00.0000", "other"), true);
    CPCMsg offer = Message(0x0A1F, std::string("\x00\x40", 2) + std::string(16, '9'));
    EXPECT_EQ(CUpdateCommand().ProcessUpdateInfoRes(offer), -1);
    EXPECT_FALSE(Image(kDSPImage).IsFile || Image(kAppImage).IsFile);
    EXPECT_FALSE(std::filesystem::exists("/tmp/zel_dsp.out"));
    std::filesystem::rename("/data/device/stick", "/data/device/usb");
    running.join();
    EXPECT_EQ(pc_->TakeSent(), (std::vector<CFakePC::Packet>{{0x0AFF, std::string("\x00\x17", 2)}}));
    EXPECT_EQ(TakeReports().back(), kComplete);
    EXPECT_EQ(ReadFile("/tmp/zel_dsp.out"), "dsp");
}

}  // namespace

}  // namespace UpdateTest
