#include <sys/stat.h>

#include <memory>
#include <thread>

#include "platform/Config.h"
#include "unit/support/TempDir.h"

using namespace QENFx::Config;
using QENFx::Data::Properties::FileProperty;
using UnitTest::ReadFile;
using UnitTest::WriteFile;

namespace {

std::unique_ptr<FileProperty> Open(const std::string& path, int mode = kOpenReadWrite) {
    return std::unique_ptr<FileProperty>(ConfigurationManager::GetManager()->Open(path.c_str(), mode));
}

void Set(const std::string& path, const std::string& key, const std::string& value) {
    const auto file = Open(path);
    file->setValue(key.c_str(), value.c_str());
    file->Update();
}

std::string Get(const std::string& path, const char* key) {
    return Open(path, kOpenReadOnly)->getValue(key);
}

class SettingsTest : public testing::Test {
protected:
    UnitTest::TempDir dir_;
    const std::string path_ = dir_ / "own.cfg";
};

// Faults: a write that drops comments, changes the order, rewrites the second of two equal keys or adds a key again.
TEST_F(SettingsTest, WriteChangesOnlyTheValues) {
    WriteFile(path_, "Comment=Mine;\n# A=0\n[noise]\r\n A = 1; # first\r\nB=2\nA=3;\n\xff\xfe");
    const auto file = Open(path_);
    file->setValue("Z", "26");
    file->setValue("B", "two");
    file->setValue("A", "a;b");
    file->setValue("C", "");
    file->setValue("", "lost");
    EXPECT_STREQ(file->getValue("B"), "two");
    file->Update();
    EXPECT_EQ(ReadFile(path_),
              "Comment=Mine;\n# A=0\n[noise]\r\n A =a;b; # first\r\nB=two;\nA=3;\n\xff\xfe\nZ=26;\nC=;\n");
    EXPECT_EQ(Get(path_, "A"), "a;b");
}

// Faults: a write that brings back what another writer changed since the file was opened; a mode reset to the default.
TEST_F(SettingsTest, WriteMergesIntoTheFileAsItIsNow) {
    WriteFile(path_, "A=1;\nB=1;\n");
    ASSERT_EQ(::chmod(path_.c_str(), 0640), 0);
    std::filesystem::create_symlink("own.cfg", dir_ / "link.cfg");
    const auto early = Open(dir_ / "link.cfg");
    Set(path_, "B", "2");
    early->setValue("A", "2");
    early->Update();
    EXPECT_EQ(ReadFile(path_), "A=2;\nB=2;\n");
    EXPECT_TRUE(std::filesystem::is_symlink(dir_ / "link.cfg"));
    struct stat status {};
    ASSERT_EQ(::stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0640u);
}

}  // namespace
