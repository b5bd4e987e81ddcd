#include "config/CConfigMgr.h"

#include "unit/support/ServiceTest.h"

using namespace UnitTest;

namespace {

class ConfigMgrTest : public ServiceTest {
protected:
    void CheckAtStart() { config_.CheckConfigFile(kOwnConfigFile); }

    CConfigMgr config_;
};

}  // namespace

// Faults: a value written to the wrong file, an index without a setting that reads or changes something.
TEST_F(ConfigMgrTest, TheIndexDecidesTheFile) {
    CheckAtStart();
    const std::string own = ReadFile(kOwnConfigFile);
    WriteFile(kSystemConfigFile, "IPAddress=10.0.0.1;\n");
    WriteFile(kApplicationConfigFile, "Language=en\n");
    config_.SetContents(kAdminPW, "a;b=c");
    config_.SetContents(kReferenceRangeDisable, 1);
    config_.SetContents(11, "eleven");
    config_.SetContents(13, "thirteen");
    EXPECT_EQ(ReadFile(kOwnConfigFile), own);
    EXPECT_EQ(ReadFile(kSystemConfigFile), "IPAddress=10.0.0.1;\nAdminPW=a;b=c;\n");
    EXPECT_EQ(ReadFile(kApplicationConfigFile), "Language=en\nReferenceRangeDisable=1;\n");
    EXPECT_EQ(config_.GetContents(kAdminPW), "a;b=c");
    EXPECT_EQ(config_.GetContents(11) + config_.GetContents(13), "");
}

// Faults: an exception that leaves the manager, a value with a line end that becomes another key, a failure that tells
// nobody.
TEST_F(ConfigMgrTest, FailuresAreLogged) {
    EXPECT_EQ(config_.GetContents(kAdminPW), "");
    config_.SetContents(kAdminPW, "x");
    EXPECT_FALSE(std::filesystem::exists(kSystemConfigFile));
    CheckAtStart();
    const std::string own = ReadFile(kOwnConfigFile);
    config_.SetContents(kPCSWName, "PC\nPCPeerID=9");
    EXPECT_EQ(ReadFile(kOwnConfigFile), own);
    const std::string errors = testing::PrintToString(LogLines());
    EXPECT_THAT(errors, testing::ContainsRegex("ERROR \\[CConfigMgr::GetContents\\] Exception: .*config_zel.cfg"));
    EXPECT_THAT(errors, testing::ContainsRegex("ERROR \\[CConfigMgr::SetContents\\] Exception: .*config_zel.cfg"));
    EXPECT_THAT(errors, testing::ContainsRegex("ERROR \\[CConfigMgr::SetContents\\] Exception: .*config_zelrm.cfg"));
}

// Fault: a number that is none, or that fits no port, taken for a port.
TEST_F(ConfigMgrTest, NumbersThatAreNoneReadAsTheirDefault) {
    WriteFile(kSystemConfigFile, "AdminPW=secret;\n");
    CheckAtStart();
    for (const char* text : {"", "x", "12x", "-1", "65536", "99999999999", "0x10", "1.5"}) {
        config_.SetContents(kPCUDPPort, text);
        EXPECT_EQ(config_.GetNumber(kPCUDPPort), 9036) << text;
    }
    config_.SetContents(kPCUDPPort, 65535);
    EXPECT_EQ(config_.GetNumber(kPCUDPPort), 65535);
    config_.SetContents(kPCUDPPort, "0");
    EXPECT_EQ(config_.GetNumber(kPCUDPPort), 0);
    EXPECT_EQ(config_.GetNumber(kAdminPW), 0);
    config_.SetContents(kPCPeerID, '\0');
    EXPECT_EQ(config_.GetFirstChar(kPCPeerID), '\0');
}
