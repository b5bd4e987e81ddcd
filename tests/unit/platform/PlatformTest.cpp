// The calls of src/platform, as the daemon makes them, against libraries that were written without it.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "platform/Config.h"
#include "platform/Crc16.h"
#include "platform/Database.h"
#include "platform/Log.h"
#include "platform/Service.h"
#include "platform/Text.h"
#include "platform/Xml.h"
#include "platform/upgrade.h"

extern "C" const char* TakeFrameworkCalls();
extern "C" const char* UpgradeCalls();

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

TEST(PlatformTest, LogAndDatabase) {
    using namespace QENFx::DB;
    using QENFx::Log::Logger;
    {
        QENFx::Log::FileLog* log = Logger::getLogger()->getLog("[RMUP]");
        log->WriteInfo("%s port %d", "[main]", 9034);
        const auto database = std::make_unique<Sqlite>();
        database->Open("/a.db", kOpenReadWrite);
        QENFx::Common::String statement;
        statement.Format("UPDATE %s", "a");
        database->Execute(statement, 200000);
        const std::unique_ptr<QENFx::Data::Collection::Table> table(database->getTable("SELECT", 1));
        table->Reset();
        EXPECT_TRUE(table->MoveNext());
        const QENFx::Data::Collection::Row* row = table->getCurrent();
        EXPECT_STREQ(row->getString("text"), "text");
        EXPECT_EQ(row->getDouble("A"), 65);
        EXPECT_TRUE(row->exists("c"));
        EXPECT_EQ(MessageOf<DBException>([&] { database->Close(); }), "locked");
        log->WriteError("%.1f", 0.5);
        Logger::DestroyLogger();
    }
    EXPECT_STREQ(TakeFrameworkCalls(),
                 "getLog [RMUP]\nWriteInfo [main] port 9034\nSqlite::Open /a.db 1b5a\nExecute UPDATE a 200000\n"
                 "getTable SELECT 1\nReset\nMoveNext\n~DBException\nWriteError 0.5\nDestroyLogger\n~Table\n~Sqlite\n");
}

TEST(PlatformTest, VersionCrcAndXml) {
    using QENFx::Common::Version;
    const Version one("1");
    Version two = one;
    EXPECT_TRUE(two <= one && !(two < one) && two == one);
    two = "2";
    EXPECT_TRUE(one < two && one != two && !(two <= one));
    two = one;
    EXPECT_STREQ(two.getVersion(), "1");
    EXPECT_STREQ(Version().getVersion(), "0.00.00.0000");

    const std::uint8_t byte = 0x12;
    EXPECT_EQ(QENFx::Common::Convertor::CRC16::crc16(&byte, 0x34), 0x1234);

    {
        QENFx::Common::Xml::XmlDocument document;
        EXPECT_TRUE(document.LoadXML("<a/>"));
        const auto* list = document.getNodeListByName("b");
        EXPECT_EQ(list->getNodeCount(), 5);
        const auto* node = list->getNode(3);
        EXPECT_EQ(node->getNodeListByName("c"), list);
        EXPECT_STREQ(node->getAttributeByName("d")->getValue(), "d");
    }
    EXPECT_STREQ(TakeFrameworkCalls(),
                 "LoadXML <a/>\nXmlDocument::getNodeListByName b\ngetNode 3\nNode::getNodeListByName c\n"
                 "~XmlDocument\n");
}

TEST(PlatformTest, Upgrade) {
    char versions[8 * 16];
    nv_get_img_version_all(versions);
    EXPECT_EQ(std::string(versions, sizeof(versions)), std::string(sizeof(versions), '7'));
    checkUsbConnect();
    usbMount(1, "/mnt/usb/");
    upImgWrite(3, "A", 131072, 1);
    getActiveIndex();
    changeUpActiveIndex();
    EXPECT_STREQ(nv_get_value("sn"), "sn");
    nv_set_img_version(7, "1.00.00.00000000", 0);
    EXPECT_STREQ(UpgradeCalls(),
                 "checkUsbConnect\nusbMount 1 /mnt/usb/\nupImgWrite 3 65 131072 1\ngetActiveIndex\n"
                 "changeUpActiveIndex\nnv_get_value sn\nnv_set_img_version 7 1.00.00.00000000 0\n");
}

}  // namespace
