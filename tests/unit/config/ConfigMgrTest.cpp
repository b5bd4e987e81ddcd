#include "config/CConfigMgr.h"

#include <functional>

#include "unit/support/ServiceTest.h"

using namespace UnitTest;

namespace {

class ConfigMgrTest : public ServiceTest {
protected:
    void CheckAtStart() { config_.CheckConfigFile(kOwnConfigFile); }

    CConfigMgr config_;
};

}  // namespace

// Fault: a number that is none, or that fits no port, taken for a port.
TEST_F(ConfigMgrTest, NumbersThatAreNoneReadAsTheirDefault) {
    WriteFile(kSystemConfigFile, "AdminPW=secret;\n");
    CheckAtStart();
    for (const char* text : {"", "x", "12x", "-1", "65536", "99999999999", "0x10", "1.5"}) {
        config_.SetContents(ConfigKey::kPCUDPPort, text);
        EXPECT_EQ(config_.GetNumber(ConfigKey::kPCUDPPort), 9036) << text;
    }
    config_.SetContents(ConfigKey::kPCUDPPort, 65535);
    EXPECT_EQ(config_.GetNumber(ConfigKey::kPCUDPPort), 65535);
    config_.SetContents(ConfigKey::kPCUDPPort, "0");
    EXPECT_EQ(config_.GetNumber(ConfigKey::kPCUDPPort), 0);
    EXPECT_EQ(config_.GetContents(ConfigKey::kAdminPW), "secret");
}

// Faults: a PC of which the file keeps a part, a peer ID that does not come back and is not known for it, a PC that is
// forgotten before the restart because it could not be written, one that hides what was written later.
TEST_F(ConfigMgrTest, TheRegisteredPCIsOneValue) {
    CheckAtStart();
    const RegisteredPC none = {"0.0.0.0", 9034, 9036, "", '0'};
    EXPECT_EQ(config_.GetRegisteredPC(), none);
    const CConfigMgr restarted;
    for (int byte = 0; byte < 256; ++byte) {
        const RegisteredPC pc = {"10.0.0.2", 40000, 9036, "a=b; c;", static_cast<char>(byte)};
        config_.SetRegisteredPC(pc);
        EXPECT_EQ(config_.GetRegisteredPC(), pc) << byte;
        EXPECT_EQ(restarted.GetRegisteredPC() == pc, CConfigMgr::IsStorablePeerID(static_cast<std::uint8_t>(byte)))
            << byte;
    }
    const std::string stored = ReadFile(kOwnConfigFile);
    const RegisteredPC other = {"10.0.0.3", 40001, 9037, "line\nfeed", 'B'};
    config_.SetRegisteredPC(other);
    EXPECT_EQ(ReadFile(kOwnConfigFile), stored);
    EXPECT_EQ(config_.GetRegisteredPC(), other);
    EXPECT_EQ(config_.GetContents(ConfigKey::kPCIPAddress) + config_.GetFirstChar(ConfigKey::kPCPeerID), "10.0.0.3B");
    config_.ForgetRegisteredPC();
    for (const CConfigMgr& config : {std::cref(config_), std::cref(restarted)}) {
        EXPECT_EQ(config.GetContents(ConfigKey::kPCIPAddress) + config.GetContents(ConfigKey::kPCSWName) +
                      config.GetContents(ConfigKey::kPCPeerID),
                  "0.0.0.00");
    }
}
