#include "process/CTransferResult.h"

#include "unit/support/ServiceTest.h"

using namespace UnitTest;

namespace {

class TransferResultTest : public ServiceTest {};

}  // namespace

// Fault: a text that is too short read beyond its end.
TEST_F(TransferResultTest, ConvertsDates) {
    const std::string date = "2023-01-02 11:30:58";
    EXPECT_EQ(CTransferResult::ConvertDate(date, 1), "20230102");
    EXPECT_EQ(CTransferResult::ConvertDate(date, 2), "20230102113058");
    EXPECT_EQ(CTransferResult::ConvertDate(date.substr(0, 18), 2), "20230102");
    EXPECT_EQ(CTransferResult::ConvertDate(date.substr(0, 10), 2), "20230102");
    for (const int mode : {0, 3}) {
        EXPECT_EQ(CTransferResult::ConvertDate(date, mode), "");
    }
    EXPECT_EQ(CTransferResult::ConvertDate(date.substr(0, 9), 1) + CTransferResult::ConvertDate("", 2), "");
}

// Faults: a request made of what an empty, foreign or cut file leaves behind, a memory filled by a huge one.
TEST_F(TransferResultTest, ReadsRequestFiles) {
    std::string key = "unchanged";
    EXPECT_EQ(CTransferResult().GetResultInfo(key), -1);
    for (const std::string& content :
         {std::string(), std::string("1"), std::string("1 "), std::string("x ResultID = 1"), std::string(" 1"),
          "1 " + std::string(4095, 'k'), "1 " + std::string(1 << 20, 'k')}) {
        WriteFile("/tmp/sendtopc.data", content);
        EXPECT_EQ(CTransferResult().GetResultInfo(key), -1) << content.substr(0, 20);
    }
    EXPECT_EQ(key, "unchanged");
    EXPECT_EQ(Logged("ERROR [CTransferResult::GetResultInfo] Cannot read request file(/tmp/sendtopc.data)"), 8);
    WriteFile("/tmp/sendtopc.data", "1\nResultID = 12");
    EXPECT_EQ(CTransferResult().GetResultInfo(key), 1);
    EXPECT_EQ(key, "ResultID = 12");
    WriteFile("/tmp/sendtopc.data", "0;" + std::string(4094, 'k'));
    EXPECT_EQ(CTransferResult().GetResultInfo(key), 0);
}
