// The calls of src/platform, as the daemon makes them, against libraries that were written without it.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "platform/Config.h"
#include "platform/Database.h"
#include "platform/Service.h"
#include "platform/Text.h"
#include "platform/Xml.h"
#include "platform/upgrade.h"

extern "C" const char* TakeFrameworkCalls();

namespace {

/// The message of the exception that the work throws.
template <typename Exception, typename Work>
std::string MessageOf(Work work) {
    try {
        work();
    } catch (Exception* thrown) {
        const std::unique_ptr<Exception> exception(thrown);
        return exception->GetMessage();
    }
    return "(none)";
}

// Faults: a virtual operation at another place, so that opening a file calls something else and getting a value sets
// one; an operation that is virtual on one side only.
TEST(PlatformTest, Settings) {
    using namespace QENFx::Config;
    {
        const std::unique_ptr<QENFx::Data::Properties::FileProperty> file(
            ConfigurationManager::GetManager()->Open("/a.cfg", kOpenReadWrite));
        file->setValue("key", "text");
        EXPECT_STREQ(file->getValue("name"), "value");
        file->Update();
    }
    EXPECT_EQ(MessageOf<ConfigurationException>([] { ConfigurationManager::GetManager()->Open("", kOpenReadOnly); }),
              "no such file");
    EXPECT_STREQ(TakeFrameworkCalls(),
                 "ConfigurationManager: open /a.cfg 189e\nFileProperty: set key text\nFileProperty: get name\nUpdate\n"
                 "~FileProperty\nConfigurationManager: open  189d\n~ConfigurationException\n");
}

class Worker : public QENFx::Service::Thread {
public:
    explicit Worker(std::string& told) : told_(told) {}
    ~Worker() override { told_ += own_ == std::string(50, 'o') ? " deleted" : " overwritten"; }

    int Run() override {
        told_ += IsStopped() ? " stopped" : " runs";
        return 42;
    }

private:
    std::string& told_;
    std::string own_ = std::string(50, 'o');
};

// Faults: a framework's thread that overwrites what derives from it; another operation called for Run or the deletion.
TEST(PlatformTest, Threads) {
    using namespace QENFx::Service;
    std::string told;
    {
        Worker worker(told);
        EXPECT_FALSE(worker.IsStopped());
        worker.Stop();
        worker.Start();
        EXPECT_TRUE(pthread_equal(worker.GetThreadId(), pthread_self()));
        EXPECT_EQ(MessageOf<WorkException>([&] { worker.Start(); }), "no thread");
    }
    auto* removed = std::make_unique<Worker>(told).release();
    ThreadMemoryRemover::GetInstance()->addThread(removed);
    removed->Start();
    EXPECT_EQ(told, " stopped deleted runs deleted");
    EXPECT_STREQ(TakeFrameworkCalls(), "Run 42\n~WorkException\n~Thread\nRun 42\n~Thread\n");
}

// Faults: an object too small for what the framework keeps in it; one that is deleted as if its size were known; a copy
// that shares what it was made from.
TEST(PlatformTest, Objects) {
    using namespace QENFx::DB;
    using QENFx::Common::Version;
    {
        const auto database = std::make_unique<Sqlite>();
        QENFx::Common::String statement;
        statement.Format("UPDATE %s", "a");
        database->Open("/a.db", kOpenReadWrite);
        database->Execute(statement, 200000);
        const std::unique_ptr<QENFx::Data::Collection::Table> table(database->getTable("SELECT", 1));
        EXPECT_TRUE(table->MoveNext());
        EXPECT_EQ(MessageOf<DBException>([&] { database->Close(); }), "locked");
        const auto document = std::make_unique<QENFx::Common::Xml::XmlDocument>();
        EXPECT_TRUE(document->LoadXML("<a/>"));
    }
    EXPECT_STREQ(TakeFrameworkCalls(),
                 "Sqlite::Open /a.db 1b5a\nExecute UPDATE a 200000\ngetTable SELECT 1\nMoveNext\n~DBException\n"
                 "LoadXML <a/>\n~XmlDocument\n~Table\n~Sqlite\n");
    const Version one("1");
    Version two = one;
    EXPECT_TRUE(two <= one && !(two < one) && two == one);
    two = "2";
    EXPECT_TRUE(one < two && one != two && !(two <= one));
    two = one;
    EXPECT_STREQ(two.getVersion(), "1");
}

}  // namespace
