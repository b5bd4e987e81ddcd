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
