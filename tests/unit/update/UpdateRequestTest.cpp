#include <array>
#include <future>

#include "UpdateBench.h"
#include "UpdateFiles.h"
#include "net/CUDSMsg.h"
#include "process/CUpdateCommand.h"
#include "process/update/CUpdateSlot.h"

using RMUP::Process::CUpdateSlot;

namespace UpdateTest {

namespace {

using Packets = std::vector<CFakePC::Packet>;

class UpdateRequest : public UpdateBench {
protected:
    UpdateRequest() : pc_(std::make_shared<CFakePC>()) { device_->SetSession(pc_); }

    static CUDSMsg FromZELApp(const std::string& payload) {
        CUDSMsg message;
        (void)message.GetSendPacket(0, Bytes(payload));
        return message;
    }

    int Offer(const std::string& payload) {
        CPCMsg message = Message(0x0A1F, payload);
        return CUpdateCommand().ProcessUpdateInfoRes(message);
    }

    static std::string Version(std::string text) {
        text.resize(16);
        return text;
    }

    std::shared_ptr<CFakePC> pc_;
};

// Faults: a second worker beside one that still lives, whatever the status says; the right to run lost when a worker
// has ended.
TEST_F(UpdateRequest, OneWorkerAtATime) {
    CUDSMsg start = FromZELApp(std::string("\x00\x05", 2));
    {
        const auto running = CUpdateSlot::Take();
        EXPECT_EQ(CUpdateCommand().ProcessUpdateStart(start), -1);
    }
    device_->SetStatus(DeviceStatus::kUpdating);
    EXPECT_EQ(CUpdateCommand().ProcessUpdateStart(start), -1);
    device_->SetStatus(DeviceStatus::kRegistered);
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(CUpdateCommand().ProcessUpdateStart(start), 0);
        while (CUpdateSlot::IsTaken()) {
            std::this_thread::yield();
        }
        EXPECT_EQ(device_->GetStatus(), DeviceStatus::kRegistered);
    }
    CUDSMsg empty = FromZELApp("");
    ASSERT_EQ(CUpdateCommand().ProcessUpdateStart(empty), 0);
    while (CUpdateSlot::IsTaken()) {
        std::this_thread::yield();
    }
}

TEST_F(UpdateRequest, ZELAppsAnswer) {
    for (const auto& [payload, result, notices] :
         {std::tuple<std::string, int, std::size_t>{std::string(1, '\0'), 0, 0},
          {"\x01", 0, 1},
          {"\x02", 0, 0},
          {"", -1, 0},
          {"\x01\x01", -1, 0}}) {
        CUDSMsg answer = FromZELApp(payload);
        EXPECT_EQ(CUpdateCommand().ProcessUpdateRequestRes(answer), result);
        EXPECT_EQ(pc_->TakeSent(), Packets(notices, {0x0AFF, std::string("\x00\x17", 2)}));
    }
}

// Faults: a flag bit read at the wrong place, versions assigned to the wrong image, the XML archive coupled here, the
// order of the catalogue instead of the offer's, a read beyond a short packet.
TEST_F(UpdateRequest, Offers) {
    pc_->SetUpdateFlag(true);
    const std::string all = Version("2.0.0.1") + Version("2.0.0.2") + Version("1.0.0.0") + Version("2.0.0.4");
    EXPECT_EQ(Offer(std::string("\x01\xE0") + all), 0);
    const auto entry = [](char image, const std::string& version) {
        return std::string{image, 16, 0} + Version(version);
    };
    EXPECT_EQ(TakeReports(), std::vector{std::string("\x03\x04") + entry(7, "2.00.00.0001") + entry(3, "2.00.00.0002") +
                                         entry(5, "1.00.00.0000") + entry(6, "2.00.00.0004")});
    EXPECT_TRUE(pc_->GetUpdateFlag());

    device_->ClearImageInfo();
    EXPECT_EQ(Offer(std::string("\x00\x40", 2) + Version("2.0.0.2")), 0);
    EXPECT_EQ(TakeReports(),
              std::vector{std::string("\x03\x02") + entry(7, "2.00.00.0001") + entry(3, "2.00.00.0002")});

    device_->ClearImageInfo();
    EXPECT_EQ(Offer(std::string("\x01\x60") + Version("1.0.0.0") + Version("1.0.0.0") + Version("no'version")), 0);
    EXPECT_EQ(TakeReports(), std::vector<std::string>{kNothing});
    EXPECT_FALSE(pc_->GetUpdateFlag());
    EXPECT_TRUE(Image(kXMLImage).IsFile && !Image(kXMLImage).NeedUpdate);

    device_->ClearImageInfo();
    for (const std::string& cut : {std::string(), std::string("\x01"), std::string("\x01\xE0") + all.substr(1)}) {
        EXPECT_EQ(Offer(cut), -1);
        EXPECT_FALSE(Image(kSYSImage).IsFile);
    }
    EXPECT_TRUE(TakeReports().empty());
}

}  // namespace

}  // namespace UpdateTest
