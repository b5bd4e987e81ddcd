#include <gtest/gtest.h>

#include <thread>

#include "FullDisk.h"
#include "Results.h"
#include "store/CStoreReader.h"
#include "unit/support/TempDir.h"

namespace ZELPC {
namespace {

using UnitTest::FullDisk;
using UnitTest::ReadFile;
using UnitTest::TempDir;
using UnitTest::WriteFile;

class StoreTest : public testing::Test {
protected:
    StoreOptions Options() const { return {folder_ / "store.db", 0}; }

    std::unique_ptr<CStore> Open() const {
        auto store = std::make_unique<CStore>(Options());
        store->SetDestinations({{"lis", ""}, {"controls", "Q"}});
        return store;
    }

    /// Why the store cannot be opened.
    std::string Refusal() const {
        try {
            Open();
        } catch (const std::exception& error) {
            return error.what();
        }
        return {};
    }

    TempDir folder_;
};

TEST_F(StoreTest, AResultIsKeptAndQueuedOnceHoweverOftenItComes) {
    auto store = Open();
    const AppendOutcome first = AppendNow(*store, "A1", ResultMessage("Rex"));
    EXPECT_EQ(first.status, AppendStatus::kStored);
    // Built anew by the analyzer, which changes MSH-7 and nothing else.
    AppendNow(*store, "A1", ResultMessage("Rex", "20261121110000"));
    EXPECT_EQ(store->Health().stored, 1);
    EXPECT_EQ(store->Health().repeated, 1);
    // Other analyzers, other patients and other kinds are others.
    EXPECT_EQ(AppendNow(*store, "A2", ResultMessage("Rex")).status, AppendStatus::kStored);
    EXPECT_EQ(AppendNow(*store, "A1", ResultMessage("Tom")).status, AppendStatus::kStored);
    EXPECT_EQ(AppendNow(*store, "A1", ResultMessage("QC", "20261121103637", "Q")).status, AppendStatus::kStored);
    // And so it is after the gateway was started anew.
    store.reset();
    store = Open();
    AppendNow(*store, "A1", ResultMessage("Rex", "20261122"));
    EXPECT_EQ(store->Health().repeated, 1);

    CStoreReader reader(store->Path());
    EXPECT_EQ(reader.Result(first.id)->text, ResultMessage("Rex"));
    EXPECT_EQ(reader.Result(first.id)->repeats, 2);
    EXPECT_EQ(reader.Waiting("lis", "A1", 10).size(), 3U);
    EXPECT_EQ(reader.Waiting("controls", "A1", 10).size(), 1U);
    ResultFilter filter;
    filter.patient = "Rex";
    const auto found = reader.Results(filter);
    ASSERT_EQ(found.size(), 2U);
    EXPECT_EQ(found[0].facts.panel, "Renal 2");
    EXPECT_EQ(found[0].facts.measured, "20230601080001");
    filter.serial = "A2";
    EXPECT_EQ(reader.Results(filter).size(), 1U);
}

/// Catches an acknowledged result that a kill takes away or delivers twice, and one that an upgrade loses.
TEST_F(StoreTest, WhatWasTakenIsFoundAndQueuedByTheNextLifeAndTheNextVersion) {
    const std::string path = Options().path;
    const std::string killed = folder_ / "killed.db";
    auto store = Open();
    AppendNow(*store, "A1", ResultMessage("Rex"));
    std::promise<void> taken;
    store->Append({"A1", ResultMessage("Tom"), 7}, [&](const AppendOutcome&) {
        for (const char* part : {"", "-wal"}) {
            std::filesystem::copy_file(path + part, killed + part);
        }
        taken.set_value();
    });
    taken.get_future().get();
    store.reset();
    {
        CStore next({killed, 0});
        next.SetDestinations({{"lis", ""}});
        AppendNow(next, "A1", ResultMessage("Tom", "20261122"));
        EXPECT_EQ(next.Health().repeated, 1);
        EXPECT_EQ(AppendNow(next, "A1", ResultMessage("Zoe")).id, 4);
    }
    CDatabase(killed, CDatabase::Access::kCreate)
        .Execute(
            "ALTER TABLE result ADD COLUMN text BLOB; UPDATE result SET text = (SELECT text FROM original o WHERE o.id "
            "= result.id); DROP TABLE original; PRAGMA user_version = 1");
    const CStore upgraded({killed, 0});
    const auto waiting = CStoreReader(killed).Waiting("lis", "A1", 10);
    ASSERT_EQ(waiting.size(), 3U);
    EXPECT_EQ(waiting[1].text, ResultMessage("Tom"));
    EXPECT_EQ(waiting[1].received, 7);
    EXPECT_EQ(CStoreReader(killed).Result(2)->repeats, 1);
}

TEST_F(StoreTest, WhatCannotBeAResultIsKeptAsideAndNeverQueued) {
    auto store = Open();
    const std::string header = ResultMessage("Rex").substr(0, ResultMessage("Rex").find('\r') + 1);
    for (const std::string& text : {std::string(), header, std::string("\xFF\0garbage", 9)}) {
        const AppendOutcome outcome = AppendNow(*store, "A1", text);
        EXPECT_EQ(outcome.status, AppendStatus::kAside);
        EXPECT_NE(outcome.reason, "");
        EXPECT_EQ(AppendNow(*store, "A1", text).status, AppendStatus::kAside);
    }
    CStoreReader reader(store->Path());
    const auto aside = reader.Aside(10);
    ASSERT_EQ(aside.size(), 3U);
    EXPECT_EQ(aside[0].times, 2);
    EXPECT_TRUE(reader.Results({}).empty());
    EXPECT_TRUE(reader.WaitingSerials("lis").empty());
}

TEST_F(StoreTest, AStoreThatIsUsedDamagedOrForeignIsRefusedAndLeftAsItIs) {
    const std::string path = Options().path;
    {
        const auto store = Open();
        EXPECT_NE(Refusal().find("another gateway"), std::string::npos);
        for (int count = 0; count < 200; ++count) {
            AppendNow(*store, "A1", ResultMessage("Rex" + std::to_string(count)));
        }
    }
    std::string damaged = ReadFile(path);
    damaged.replace(8192, 8192, std::string(8192, '\x5A'));
    for (const std::string& content : {damaged, std::string("not a database, but long enough to be looked at")}) {
        WriteFile(path, content);
        EXPECT_NE(Refusal(), "");
        EXPECT_EQ(ReadFile(path), content);
    }
    for (const char* statement : {"CREATE TABLE other (x)", "PRAGMA user_version = 99"}) {
        std::filesystem::remove(path);
        if (statement[0] == 'P') {
            Open();
        }
        CDatabase(path, CDatabase::Access::kCreate).Execute(statement);
        const std::string content = ReadFile(path);
        EXPECT_NE(Refusal(), "");
        EXPECT_EQ(ReadFile(path), content);
    }
}

TEST_F(StoreTest, AFullDiskStoresNothingAndSaysSoUntilThereIsRoom) {
    auto store = Open();
    ASSERT_EQ(AppendNow(*store, "A1", ResultMessage("before")).status, AppendStatus::kStored);
    {
        const FullDisk full(std::filesystem::file_size(Options().path + "-wal"));
        const AppendOutcome outcome = AppendNow(*store, "A1", ResultMessage("during"));
        EXPECT_EQ(outcome.status, AppendStatus::kFailed);
        EXPECT_NE(outcome.reason, "");
        EXPECT_NE(store->Health().problem, "");
    }
    EXPECT_EQ(AppendNow(*store, "A1", ResultMessage("during")).status, AppendStatus::kStored);
    EXPECT_EQ(store->Health().problem, "");
    EXPECT_EQ(store->Health().failed, 1);
    // Room that is kept back for deliveries: results are refused, marks are not.
    store.reset();
    CStore reserved({Options().path, std::int64_t{1} << 60});
    EXPECT_EQ(AppendNow(reserved, "A1", ResultMessage("after")).status, AppendStatus::kFailed);
    EXPECT_NE(reserved.Health().problem.find("kept free"), std::string::npos);
    EXPECT_EQ(CountOf([&](auto done) { reserved.Drop(1, done); }), 1);
}

/// Catches memory that fills up while the disk stands still, a result that is told as kept though it was refused, and
/// room that is never given back.
TEST_F(StoreTest, OfManyAnalyzersAtOnceTheStoreHoldsNoMoreThanItMayAndKeepsAllThatItTook) {
    constexpr std::size_t kMost = 1 << 20;
    constexpr std::size_t kLength = 20'000;
    CStore store({Options().path, 0, 0, kMost});
    store.SetDestinations({{"lis", ""}});
    std::promise<void> stands;
    std::promise<void> goesOn;
    store.Append({"A", ResultMessage("first"), 1}, [&](const AppendOutcome&) {
        stands.set_value();
        goesOn.get_future().wait();
    });
    stands.get_future().wait();  // what comes now waits behind this one
    std::atomic<int> stored = 0;
    std::atomic<int> refused = 0;
    std::vector<std::thread> analyzers;
    for (int analyzer = 0; analyzer < 8; ++analyzer) {
        analyzers.emplace_back([&, serial = "A" + std::to_string(analyzer)] {
            for (int number = 0; number < 20; ++number) {
                const std::string text = ResultMessage(std::to_string(number) + std::string(kLength, 'x'));
                store.Append({serial, text, 1}, [&](const AppendOutcome& outcome) {
                    ++(outcome.status == AppendStatus::kStored ? stored : refused);
                });
            }
        });
    }
    for (std::thread& analyzer : analyzers) {
        analyzer.join();
    }
    EXPECT_EQ(stored, 0);
    const int taken = 160 - refused;
    EXPECT_LE(static_cast<std::size_t>(taken) * kLength, kMost);
    EXPECT_GE(static_cast<std::size_t>(taken + 1) * (kLength + 2000), kMost);
    std::promise<bool> filed;  // what is no result is taken all the same
    store.File([&](const std::string* error) { filed.set_value(error == nullptr); });
    goesOn.set_value();
    EXPECT_TRUE(filed.get_future().get());
    EXPECT_EQ(stored, taken);
    EXPECT_EQ(CountOf([&](auto done) { store.Again("lis", {}, done); }), 0) << "all of them wait already";
    for (int number = 0; number < 60; ++number) {
        const std::string text = ResultMessage(std::to_string(number) + std::string(kLength, 'y'));
        EXPECT_EQ(AppendNow(store, "B", text).status, AppendStatus::kStored);
    }
    EXPECT_EQ(CStoreReader(store.Path()).Waiting("lis", "B", 100).size(), 60U);
}

/// Catches a result that is removed though somebody has not got it, or has only just got it, one that stays for ever,
/// and a search that ends after its first step.
TEST_F(StoreTest, OnlyWhatWasDeliveredLongAgoIsRemoved) {
    constexpr std::int64_t kLongAgo = 1'700'000'000'000;
    auto store = Open();
    const std::vector<std::string> kept{"waiting", "held", "dropped", "recent", "half", "again", "nowhere"};
    for (const std::string& patient : kept) {
        AppendNow(*store, "A1", ResultMessage(patient, "20231114", patient == "half" ? "Q" : "P"));
    }
    for (int number = 0; number < 449; ++number) {
        store->Append({"A2", ResultMessage(std::to_string(number)), kLongAgo}, [](const AppendOutcome&) {});
    }
    AppendNow(*store, "A2", ResultMessage("449"));
    // The clock is set in the database: all this was long ago.
    const auto set = [this](const std::string& values, const std::string& where) {
        CDatabase(Options().path, CDatabase::Access::kCreate)
            .Execute(("UPDATE delivery SET " + values + " WHERE result IN (SELECT id FROM result WHERE " + where + ")")
                         .c_str());
    };
    set("state = 2", "patient NOT IN ('waiting', 'again')");
    set("state = 1", "patient = 'held'");
    set("state = 3", "patient = 'dropped'");
    set("state = CASE destination WHEN 1 THEN 2 ELSE 0 END", "patient = 'half'");
    set("changed = changed + 2", "patient = 'recent'");
    CDatabase(Options().path, CDatabase::Access::kCreate)
        .Execute(
            "DELETE FROM delivery WHERE result = (SELECT id FROM result WHERE patient = 'nowhere');"
            "INSERT INTO delivery (destination, result, serial, state, queued, changed) SELECT 1, id, serial, 2, 1, 1 "
            "FROM result WHERE patient = 'again'");

    const auto left = [&store](std::int64_t before) {
        for (bool more = true; more;) {
            std::promise<bool> promise;
            store->RemoveOld(before, [&](bool value) { promise.set_value(value); });
            more = promise.get_future().get();
        }
        ResultFilter all;
        all.limit = 1000;
        std::vector<std::string> patients;
        for (const StoredResult& result : CStoreReader(store->Path()).Results(all)) {
            patients.insert(patients.begin(), result.facts.patient);
        }
        return patients;
    };
    EXPECT_EQ(left(kLongAgo + 1), kept);
    EXPECT_EQ(store->Health().removed, 450);
    // Delivered at last, and looked at from the first one on.
    set("state = 2", "patient IN ('waiting', 'held', 'half', 'again')");
    EXPECT_EQ(left(kLongAgo), (std::vector<std::string>(kept)));
    EXPECT_EQ(left(kLongAgo + 1), (std::vector<std::string>{"dropped", "recent", "nowhere"}));
    EXPECT_EQ(CDatabase(Options().path, CDatabase::Access::kRead).Number("SELECT count(*) FROM original"), 3);
}

TEST_F(StoreTest, DeliveriesAreSentAgainAndDropped) {
    auto store = Open();
    for (const char* patient : {"Rex", "Tom", "Rex2"}) {
        AppendNow(*store, "A1", ResultMessage(patient));
    }
    CStoreReader reader(store->Path());
    const auto mark = [&](std::int64_t id, DeliveryState state) {
        std::promise<void> promise;
        store->Mark({id, state, 1, "why"}, [&](const std::string*) { promise.set_value(); });
        promise.get_future().get();
    };
    const auto waiting = reader.Waiting("lis", "A1", 10);
    ASSERT_EQ(waiting.size(), 3U);
    mark(waiting[0].id, DeliveryState::kDelivered);
    mark(waiting[1].id, DeliveryState::kHeld);
    EXPECT_TRUE(reader.IsHeld("lis", "A1"));
    EXPECT_EQ(reader.Deliveries("lis", DeliveryState::kHeld, 10).at(0).reason, "why");
    EXPECT_EQ(reader.Queues().at(1).held, 1);

    // A held one goes back to where it stood; one that waits is left; one that was delivered goes out once more.
    const ResultFilter everything;
    EXPECT_EQ(CountOf([&](auto done) { store->Again("lis", everything, done); }), 2);
    const auto again = reader.Waiting("lis", "A1", 10);
    ASSERT_EQ(again.size(), 3U);
    EXPECT_EQ(again[0].id, waiting[1].id);
    EXPECT_EQ(again[2].result, waiting[0].result);
    ResultFilter tom;
    tom.patient = "Tom";
    EXPECT_EQ(CountOf([&](auto done) { store->Again("lis", tom, done); }), 0);
    EXPECT_EQ(CountOf([&](auto done) { store->Again("nowhere", tom, done); }), -1);

    EXPECT_EQ(CountOf([&](auto done) { store->Drop(again[0].id, done); }), 1);
    EXPECT_EQ(CountOf([&](auto done) { store->Drop(again[0].id, done); }), 0);
    // A mark that comes late does not bring back what was dropped.
    mark(again[0].id, DeliveryState::kWaiting);
    EXPECT_EQ(reader.Waiting("lis", "A1", 10).size(), 2U);
    EXPECT_EQ(CountOf([&](auto done) { store->AgainOne(again[0].id, done); }), 1);
    EXPECT_EQ(reader.Waiting("lis", "A1", 10).size(), 3U);
}

}  // namespace
}  // namespace ZELPC
