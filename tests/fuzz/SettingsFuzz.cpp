#include <cstring>

#include "common/Shell.h"
#include "config/CConfigMgr.h"
#include "fuzz/Fuzz.h"
#include "unit/support/ServiceTest.h"

using Fuzz::Require;

/// Plays the shell, of which the settings have one command carried out.
int RunShell(const char* command) {
    Require(std::strcmp(command, "rm -f /data/config/config_zelrm.cfg") == 0, "the command is a constant");
    return unlink(kOwnConfigFile);
}

namespace {

class PrivatePaths : public UnitTest::ServiceTest {
    void TestBody() override {}
};

std::vector<std::string> ReadAll(const CConfigMgr& config, ConfigKey except) {
    std::vector<std::string> values;
    for (int index = 0; index <= static_cast<int>(ConfigKey::kUpdateURL); ++index) {
        values.push_back(ConfigKey{index} == except ? "" : config.GetContents(ConfigKey{index}));
    }
    return values;
}

}  // namespace

/// The program's settings file as it may be found at a start, after the program's own first line when the first byte is
/// even; and a value that is stored in it, the text before the first zero byte.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const PrivatePaths paths;
    static CConfigMgr config;
    Fuzz::Bytes input(data, size);
    const std::uint8_t choice = Fuzz::TakeByte(input);
    const std::string value(Fuzz::Text(input).substr(0, Fuzz::Text(input).find('\0')));
    UnitTest::WriteFile(kOwnConfigFile,
                        (choice % 2 == 0 ? "Comment=ZELRmUp Configuration File;\n" : "") +
                            std::string(Fuzz::Text(input.subspan(std::min(input.size(), value.size() + 1)))));

    config.CheckConfigFile(kOwnConfigFile);
    const std::string checked = UnitTest::ReadFile(kOwnConfigFile);
    Require(config.GetContents(ConfigKey::kUpdateURL) == ZELRM_UPDATE_HOST, "a start puts the update server back");
    config.CheckConfigFile(kOwnConfigFile);
    Require(UnitTest::ReadFile(kOwnConfigFile) == checked, "a second start changes nothing");

    const ConfigKey index{choice / 2 % static_cast<int>(ConfigKey::kUpdateURL)};
    const std::vector<std::string> others = ReadAll(config, index);
    (void)config.GetNumber(index);
    const std::string before = config.GetContents(index);
    config.SetContents(index, value);
    const bool fits = value.find_first_of("\r\n") == std::string::npos;
    Require(config.GetContents(index) == (fits ? value : before), "a value is stored as it is or not at all");
    Require(ReadAll(config, index) == others, "other settings stay");
    return 0;
}
