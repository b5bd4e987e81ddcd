#include "config/CConfigMgr.h"

#include <unistd.h>

#include "unit/support/ServiceTest.h"

using namespace UnitTest;

namespace {

constexpr char kFreshFile[] =
    "Comment=ZELRmUp Configuration File;\n"
    "ZELRMTCPPort=9034;\n"
    "ZELRMUDPPort=9035;\n"
    "PCIPAddress=0.0.0.0;\n"
    "PCTCPPort=9034;\n"
    "PCUDPPort=9036;\n"
    "PCSWName=;\n"
    "PCPeerID=0;\n"
    "IPChanged=0;\n"
    "BootPartitions=11;\n"
    "UpdateImages=0;\n"
    "UpdateURL=" ZELRM_UPDATE_HOST ";\n";

class ConfigMgrTest : public ServiceTest {
protected:
    void CheckAtStart() { config_.CheckConfigFile(kOwnConfigFile); }

    CConfigMgr config_;
};

using ConfigMgrDeathTest = ConfigMgrTest;

}  // namespace

// Faults: a default that differs, the comment not in the first line, keys out of order.
TEST_F(ConfigMgrTest, MakesTheOwnFile) {
    CheckAtStart();
    EXPECT_EQ(ReadFile(kOwnConfigFile), kFreshFile);
    EXPECT_EQ(LogLines(), (std::vector<std::string>{"ERROR [CConfigMgr::CheckConfigFile] Cannot find config file(" +
                                                        std::string(kOwnConfigFile) + "), Make now",
                                                    "INFO [CConfigMgr::CheckConfigFile] Configuration file initialized",
                                                    "INFO [CConfigMgr::CheckConfigFile] Check config file(" +
                                                        std::string(kOwnConfigFile) + ") OK"}));
}

// Faults: a registration lost at a start, an update server that somebody set and that stays, a foreign or cut file that
// is taken for the own one.
TEST_F(ConfigMgrTest, KeepsItsOwnFileAndReplacesAForeignOne) {
    CheckAtStart();
    config_.SetContents(kPCPeerID, 'K');
    config_.SetContents(kUpdateURL, "elsewhere.example");
    CheckAtStart();
    EXPECT_EQ(config_.GetContents(kPCPeerID), "K");
    EXPECT_EQ(config_.GetContents(kUpdateURL), ZELRM_UPDATE_HOST);

    for (const char* foreign : {"Comment=ZELRmUp Configuration Fil;\nPCPeerID=7;\n", "PCPeerID=7;\n", "",
                                "\x7F"
                                "ELF\1"}) {
        WriteFile(kOwnConfigFile, foreign);
        CheckAtStart();
        EXPECT_EQ(ReadFile(kOwnConfigFile), kFreshFile) << foreign;
    }
}

// Fault: a daemon that runs on, or waits, with settings that it can neither read nor write.
TEST_F(ConfigMgrDeathTest, EndsTheProcessWhereNoFileCanBe) {
    WriteFile(std::string(kOwnConfigFile) + "/file", "");
    EXPECT_EXIT(
        {
            dup2(STDERR_FILENO, STDOUT_FILENO);
            CheckAtStart();
        },
        testing::ExitedWithCode(1), "ZELRmUp Shutdown\n");
    EXPECT_EQ(
        Logged("ERROR [CConfigMgr::CheckConfigFile] /data/config/config_zelrm.cfg remove fail: Directory not empty"),
        1);
}

// Faults: a value written to the wrong file, an index without a setting that reads or changes something.
TEST_F(ConfigMgrTest, TheIndexDecidesTheFile) {
    CheckAtStart();
    WriteFile(kSystemConfigFile, "IPAddress=10.0.0.1;\n");
    WriteFile(kApplicationConfigFile, "Language=en\n");
    config_.SetContents(kAdminPW, "a;b=c");
    config_.SetContents(kReferenceRangeDisable, 1);
    config_.SetContents(11, "eleven");
    config_.SetContents(13, "thirteen");
    EXPECT_EQ(ReadFile(kOwnConfigFile), kFreshFile);
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
    config_.SetContents(kPCSWName, "PC\nPCPeerID=9");
    EXPECT_EQ(ReadFile(kOwnConfigFile), kFreshFile);
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

// Fault: of two threads that write different settings one undoes what the other wrote.
TEST_F(ConfigMgrTest, ConcurrentWritersLoseNothing) {
    CheckAtStart();
    constexpr int kKeys[] = {kZELRMTCPPort, kPCTCPPort, kPCUDPPort, kPCPeerID, kIPChanged, kUpdateImages};
    constexpr int kWrites = 30;
    std::vector<std::thread> writers;
    for (const int key : kKeys) {
        writers.emplace_back([this, key] {
            for (int i = 1; i <= kWrites; ++i) {
                config_.SetContents(key, key * 1000 + i);
                EXPECT_EQ(config_.GetNumber(key), key * 1000 + i);
            }
        });
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    for (const int key : kKeys) {
        EXPECT_EQ(config_.GetNumber(key), key * 1000 + kWrites);
    }
    EXPECT_EQ(config_.GetContents(kBootPartitions), "11");
}
