#include <sys/stat.h>

#include <memory>
#include <thread>

#include "TempDir.h"
#include "platform/Config.h"

using namespace QENFx::Config;
using HostTest::ReadFile;
using HostTest::WriteFile;
using QENFx::Data::Properties::FileProperty;

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

/// Whether the work throws the exception of the interface, with a message.
template <typename Work>
bool Refuses(Work work) {
    try {
        work();
    } catch (ConfigurationException* exception) {
        const std::unique_ptr<ConfigurationException> owned(exception);
        return *owned->GetMessage() != '\0';
    }
    return false;
}

class SettingsTest : public testing::Test {
protected:
    HostTest::TempDir dir_;
    const std::string path_ = dir_ / "own.cfg";
};

// Faults: a value cut at its first semicolon, a line without one lost, a comment or an empty key taken for a setting.
TEST_F(SettingsTest, ReadsWhatPeopleAndWindowsEditorsWrite) {
    WriteFile(path_, "#A=0;\n  A =1;2; note\r\nB= x y \r\n=nothing;\nno setting\nA=9;\nEmpty=;\nLast=z");
    EXPECT_EQ(Get(path_, "A"), "1;2");
    EXPECT_EQ(Get(path_, "B"), " x y");
    EXPECT_EQ(Get(path_, "Last"), "z");
    EXPECT_EQ(Get(path_, "Empty"), "");
    EXPECT_EQ(Get(path_, ""), "");
    EXPECT_EQ(Get(path_, "a"), "");
}

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

// Fault: no lock over reading and replacing, so that one of two writers at once loses its key.
TEST_F(SettingsTest, WritersAtOnceLoseNothing) {
    WriteFile(path_, "Comment=Mine;\n");
    const auto write = [this](const std::string& name) {
        for (int i = 0; i < 40; ++i) {
            Set(path_, name + std::to_string(i), "1");
        }
    };
    const pid_t child = HostTest::InChild([&] { write("P"); });
    {
        const std::jthread other([&] { write("T"); });
        write("M");
    }
    EXPECT_EQ(HostTest::WaitFor(child), 0);
    const auto file = Open(path_);
    for (const std::string name : {"P", "T", "M"}) {
        for (int i = 0; i < 40; ++i) {
            EXPECT_STREQ(file->getValue((name + std::to_string(i)).c_str()), "1") << name << i;
        }
    }
}

// Faults: a file that is truncated and then written, so that a power cut or a full disk leaves half of it; a rest of an
// interrupted write that stops the next one.
TEST_F(SettingsTest, InterruptedWritesLeaveAWholeFile) {
    const std::string content = "First=" + std::string(20000, 'x') + ";\nCount=0;\nLast=z;\n";
    WriteFile(path_, content);
    {
        const HostTest::FullDisk full(5000);
        EXPECT_TRUE(Refuses([&] { Set(path_, "Count", "1"); }));
    }
    EXPECT_EQ(ReadFile(path_), content);

    for (int round = 0; round < 10; ++round) {
        const pid_t child = HostTest::InChild([this] {
            for (int i = 0;; ++i) {
                Set(path_, "Count", std::to_string(i));
            }
        });
        ::usleep(static_cast<useconds_t>(3000 + 997 * round));
        ::kill(child, SIGKILL);
        EXPECT_EQ(WTERMSIG(HostTest::WaitFor(child)), SIGKILL);
        EXPECT_EQ(Get(path_, "Last"), "z");
        EXPECT_EQ(Get(path_, "First").size(), 20000u);
    }
    Set(path_, "Count", "done");
    EXPECT_EQ(Get(path_, "Count"), "done");
    const std::filesystem::directory_iterator files(dir_.path());
    EXPECT_EQ(std::distance(begin(files), end(files)), 1);
}

// Faults: a crash, an empty set of values or a hang (on a pipe) where there is no settings file; a value of two lines
// that comes back as another key.
TEST_F(SettingsTest, RefusesWhatIsNoSettingsFile) {
    EXPECT_TRUE(Refuses([&] { Open(path_); }));
    EXPECT_TRUE(Refuses([&] { Open(dir_.path().string()); }));
    ASSERT_EQ(::mkfifo((dir_ / "pipe").c_str(), 0600), 0);
    EXPECT_TRUE(Refuses([&] { Open(dir_ / "pipe"); }));
    WriteFile(dir_ / "big", std::string(1024 * 1024 + 1, '\n'));
    EXPECT_TRUE(Refuses([&] { Open(dir_ / "big"); }));

    WriteFile(path_, "A=1;\n");
    EXPECT_TRUE(Refuses([&] { Set(path_, "A", "1\nAdminPW=x"); }));
    EXPECT_TRUE(Refuses([&] { Set(path_, "A", std::string(1024 * 1024, 'x')); }));
    EXPECT_TRUE(Refuses([&] {
        const auto file = Open(path_, kOpenReadOnly);
        file->setValue("A", "2");
        file->Update();
    }));
    EXPECT_TRUE(Refuses([&] { Open(path_, 0); }));
    EXPECT_EQ(ReadFile(path_), "A=1;\n");
}

}  // namespace
