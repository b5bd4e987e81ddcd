#include <gtest/gtest.h>

#include "gateway/CConfigTable.h"
#include "gateway/ReadGatewayConfig.h"
#include "unit/support/TempDir.h"

namespace ZELPC {
namespace {

using UnitTest::ReadFile;
using UnitTest::TempDir;
using UnitTest::WriteFile;

constexpr char kDirectory[] = "[[destination]]\nname = \"files\"\ntype = \"directory\"\ndirectory = \"/tmp/x\"\n";
constexpr char kMllp[] = "[[destination]]\nname = \"lis\"\ntype = \"mllp\"\nhost = \"lis\"\n";

std::string ErrorOf(const std::string& text) {
    try {
        ReadGatewayConfig(text, "g.toml");
    } catch (const CConfigError& error) {
        return error.what();
    }
    return {};
}

TEST(ConfigTest, WhatIsWrongIsToldWithItsLine) {
    const std::string files = kDirectory;
    const std::string lis = kMllp;
    const struct {
        std::string text;
        const char* error;
    } cases[] = {
        {files, ""},
        {lis, ""},
        {"x", "g.toml:1: "},
        {"", "destination: there is none"},
        {files + "[store]\npath = 1\n", "g.toml:6: store.path: a text"},
        {files + "[store]\npaht = \"x\"\n", "g.toml:6: store.paht: there is no such setting"},
        {files + "[stroe]\n", "g.toml:5: stroe: there is no such setting"},
        {files + "[store]\nmin_free_mb = -1\n", "g.toml:6: store.min_free_mb: a whole number from 0"},
        {files + "[gateway]\nthreads = true\n", "g.toml:6: gateway.threads: a whole number"},
        {files + "[gateway]\nlog = \"loud\"\n", "g.toml:6: gateway.log: \"loud\" is none of"},
        {files + "gateway = 1\n", "g.toml:5: destination.gateway"},
        {files + "[scan]\nenabled = false\n", "no analyzer is listed"},
        {files + "[scan]\ntargets = [1]\n", "g.toml:6: targets: a list of texts"},
        {files + "[scan]\nevery_s = nan\n", "g.toml:6: scan.every_s: seconds"},
        {files + "[pc]\nname = \"far too long a name\"\n", "g.toml:6: pc.name"},
        {files + "[pc]\naddress = \"analyzer\"\n", "is not an IPv4 address"},
        {files + "[[analyzer]]\n", "g.toml:5: analyzer.address: an analyzer needs"},
        {files + "[[analyzer]]\nserial = \"A\"\n[[analyzer]]\nserial = \"A\"\n",
         "g.toml:8: analyzer.serial: this analyzer"},
        {files + "[[analyzer]]\nserial = \"A\"\npassword_file = \"/none\"\n",
         "g.toml:7: analyzer.password_file: /none"},
        {files + "[web]\naddress = \"0.0.0.0\"\n", "g.toml:6: web.address: results would be open"},
        {files + "[alarm]\ncommand = \"mail\"\n", "g.toml:6: alarm.command: the whole path"},
        {files + files, "g.toml:6: destination.name: another destination"},
        {"[[destination]]\nname = \"a b\"\ntype = \"mllp\"\n", "g.toml:2: destination.name: letters"},
        {"[[destination]]\nname = \"a\"\n", "g.toml:1: destination.type: is missing"},
        {"[[destination]]\nname = \"a\"\ntype = \"ftp\"\n", "g.toml:3: destination.type: \"ftp\" is none of \"mllp\""},
        {"[[destination]]\nname = \"a\"\ntype = \"mllp\"\n", "g.toml:1: destination.host: is missing"},
        {lis + "port = 70000\n", "g.toml:5: destination.port"},
        {lis + "ca_file = \"/x\"\n", "tls: must be true"},
        {lis + "tls = true\ncertificate_file = \"/x\"\n", "g.toml:6: destination.certificate_file: goes together"},
        {lis + "directory = \"/x\"\n", "g.toml:5: destination.directory: there is no such setting"},
        {lis + "sending_application = \"x\"\n", "only written with format"},
        {lis + "format = \"standard\"\nsending_application = \"a|b\"\n", "holds a character"},
        {lis + "first_pause_s = 9\nlongest_pause_s = 1\n", "g.toml:6: destination.longest_pause_s: is shorter"},
        {lis + "loinc_file = \"/dev/null\"\non_reject = \"drop\"\n",
         "g.toml:6: destination.on_reject: \"drop\" is none"},
    };
    for (const auto& one : cases) {
        const std::string error = ErrorOf(one.text);
        EXPECT_EQ(error.empty(), *one.error == '\0') << one.text << error;
        EXPECT_NE(error.find(one.error), std::string::npos) << error;
    }
}

TEST(ConfigTest, TheExampleHoldsAndSaysWhatHoldsWithoutIt) {
    // Also with every line that is commented out.
    std::string example = ReadFile(ZELPC_SOURCE "/packaging/zelpc/gateway.toml");
    const GatewayConfig config = ReadGatewayConfig(example, "gateway.toml");
    EXPECT_EQ(config.destinations.at(0).name, "lis");
    const TempDir folder;
    WriteFile(folder / "secret", "0123456789abcdef\n");
    WriteFile(folder / "password", "zel1234\n");
    WriteFile(folder / "loinc.csv", "ALT,1742-6\n");
    std::string all;
    std::istringstream lines(example);
    for (std::string line; std::getline(lines, line);) {
        const bool setting = line.starts_with("# ") && (line.find(" = ") != line.npos || line.starts_with("# [["));
        all += (setting ? line.substr(2) : line) + "\n";
    }
    for (const auto& [name, file] :
         {std::pair("/etc/zelpc/analyzer-password", "password"), std::pair("/etc/zelpc/rabbit-password", "secret"),
          std::pair("/etc/zelpc/token", "secret"), std::pair("/etc/zelpc/loinc.csv", "loinc.csv")}) {
        for (std::size_t at = all.find(name); at != all.npos; at = all.find(name)) {
            all.replace(at, std::string(name).size(), folder / file);
        }
    }
    all.replace(all.find("tls = false"), 11, "tls = true");
    const GatewayConfig whole = ReadGatewayConfig(all, "gateway.toml");
    EXPECT_EQ(whole.destinations.size(), 3U);
    EXPECT_EQ(whole.analyzers.at(0).password, "zel1234");
    EXPECT_EQ(whole.web.token, "0123456789abcdef");
}

}  // namespace
}  // namespace ZELPC
