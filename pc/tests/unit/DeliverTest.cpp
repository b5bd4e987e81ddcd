#include <gtest/gtest.h>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/use_future.hpp>
#include <condition_variable>
#include <thread>

#include "Results.h"
#include "deliver/CDeliveryQueue.h"
#include "deliver/CDirectoryDestination.h"
#include "unit/support/TempDir.h"

namespace ZELPC {
namespace {

using UnitTest::TempDir;

/// What all connections of a scripted destination have in common.
struct Script {
    /// What becomes of each attempt; accepted without it.
    std::function<Verdict(const OutgoingMessage& message, int attempt)> verdict;
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<OutgoingMessage> attempts;
    std::vector<std::int64_t> accepted;

    Verdict Take(const OutgoingMessage& message) {
        const std::lock_guard lock(mutex);
        attempts.push_back(message);
        const auto same = [&](const OutgoingMessage& one) { return one.result == message.result; };
        const Verdict result =
            verdict ? verdict(message, static_cast<int>(std::ranges::count_if(attempts, same))) : Verdict::kAccepted;
        if (result == Verdict::kAccepted) {
            accepted.push_back(message.result);
        }
        changed.notify_all();
        return result;
    }
    template <class Condition>
    bool WaitFor(Condition condition) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(30), condition);
    }
};

class CScriptedDestination : public CDestination {
public:
    explicit CScriptedDestination(Script& script) : script_(script) {}
    asio::awaitable<DeliveryOutcome> Deliver(const OutgoingMessage& message) override {
        co_return DeliveryOutcome{script_.Take(message), "scripted"};
    }
    void Cancel() override {}

private:
    Script& script_;
};

class DeliverTest : public testing::Test {
protected:
    void SetUp() override {
        options_.name = "lis";
        options_.standard = true;
        options_.firstPause = std::chrono::milliseconds(5);
        options_.longestPause = std::chrono::milliseconds(20);
        store_.SetDestinations({{"lis", ""}});
        thread_ = std::thread([this] { context_.run(); });
    }
    void TearDown() override {
        if (queue_ != nullptr) {
            StopQueue();
        }
        work_.reset();
        thread_.join();
    }

    std::int64_t Store(const std::string& serial, const std::string& patient) {
        const std::int64_t id = AppendNow(store_, serial, ResultMessage(patient)).id;
        if (queue_ != nullptr) {
            queue_->Wake(serial);
        }
        return id;
    }
    void StartQueue() {
        queue_ = std::make_shared<CDeliveryQueue>(
            context_.get_executor(), store_, options_,
            [this](const asio::any_io_executor&) { return std::make_unique<CScriptedDestination>(script_); });
        queue_->Start();
    }
    void StopQueue() {
        asio::co_spawn(context_, queue_->Stop(), asio::use_future).get();
        queue_.reset();
    }
    bool WaitAccepted(std::size_t count) {
        return script_.WaitFor([&] { return script_.accepted.size() >= count; });
    }
    bool WaitHeld(std::int64_t count) {
        for (int tries = 0; tries < 3000; ++tries) {
            if (reader_.Queues().at(0).held == count) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }

    TempDir folder_;
    CStore store_{{folder_ / "store.db", 0}};
    CStoreReader reader_{folder_ / "store.db"};
    Script script_;
    DestinationOptions options_;
    asio::io_context context_;
    asio::executor_work_guard<asio::io_context::executor_type> work_{context_.get_executor()};
    std::thread thread_;
    std::shared_ptr<CDeliveryQueue> queue_;
};

TEST_F(DeliverTest, EachAnalyzersResultsArriveInOrderWithTheSameNumberOverRepeats) {
    // Every message fails in one way or another before it gets through.
    script_.verdict = [](const OutgoingMessage& message, int attempt) {
        constexpr Verdict kFirst[] = {Verdict::kAccepted, Verdict::kTryAgain, Verdict::kNoAnswer,
                                      Verdict::kUnreachable};
        return attempt == 1 ? kFirst[message.result % 4] : Verdict::kAccepted;
    };
    options_.connections = 3;
    for (int number = 0; number < 20; ++number) {
        Store("A" + std::to_string(number % 2), "before" + std::to_string(number));
    }
    StartQueue();
    for (int number = 0; number < 20; ++number) {
        Store("A" + std::to_string(number % 3), "after" + std::to_string(number));
    }
    ASSERT_TRUE(WaitAccepted(40));
    std::map<std::string, std::int64_t> last;
    std::map<std::int64_t, std::string> numbers;
    std::set<std::string> different;
    for (const OutgoingMessage& message : script_.attempts) {
        EXPECT_LE(last[message.serial], message.result) << "out of order";
        last[message.serial] = message.result;
        EXPECT_NE(message.text.find("|" + message.controlId + "|"), std::string::npos);
        EXPECT_EQ(numbers.emplace(message.result, message.controlId).first->second, message.controlId);
        different.insert(message.controlId);
    }
    EXPECT_EQ(different.size(), 40U);
    // What was accepted is not sent again after a restart.
    StopQueue();
    StartQueue();
    const std::int64_t last_one = Store("A9", "last");
    ASSERT_TRUE(WaitAccepted(41));
    EXPECT_EQ(script_.accepted.back(), last_one);
}

TEST_F(DeliverTest, ARejectedMessageIsHeldAndTheNextGoesOn) {
    const std::int64_t bad = Store("A1", "bad");
    script_.verdict = [&](const OutgoingMessage& message, int attempt) {
        return message.result == bad && attempt == 1 ? Verdict::kRejected : Verdict::kAccepted;
    };
    StartQueue();
    Store("A1", "good");
    ASSERT_TRUE(WaitAccepted(1));
    ASSERT_TRUE(WaitHeld(1));
    EXPECT_EQ(queue_->Status().held, 1);
    const Delivery held = reader_.Deliveries("lis", DeliveryState::kHeld, 1).at(0);
    EXPECT_EQ(held.result, bad);
    EXPECT_EQ(held.reason, "scripted");
    EXPECT_EQ(CountOf([&](auto done) { store_.AgainOne(held.id, done); }), 1);
    queue_->WakeAll();
    ASSERT_TRUE(WaitAccepted(2));
    EXPECT_EQ(script_.accepted.back(), bad);
}

TEST_F(DeliverTest, AHeldMessageStopsItsAnalyzersQueueWhereThatIsWanted) {
    options_.stopOnReject = true;
    options_.maxAttempts = 3;
    const std::int64_t bad = Store("A1", "bad");
    const std::int64_t behind = Store("A1", "behind");
    const std::int64_t other = Store("A2", "other");
    script_.verdict = [&](const OutgoingMessage& message, int attempt) {
        return message.result == bad && attempt <= 3 ? Verdict::kTryAgain : Verdict::kAccepted;
    };
    StartQueue();
    ASSERT_TRUE(WaitHeld(1));
    ASSERT_TRUE(WaitAccepted(1));
    EXPECT_EQ(script_.accepted, std::vector{other});
    // Held until somebody decides, also over a restart.
    StopQueue();
    StartQueue();
    const std::int64_t next = Store("A2", "next");
    ASSERT_TRUE(WaitAccepted(2));
    const Delivery held = reader_.Deliveries("lis", DeliveryState::kHeld, 1).at(0);
    EXPECT_EQ(CountOf([&](auto done) { store_.AgainOne(held.id, done); }), 1);
    queue_->WakeAll();
    ASSERT_TRUE(WaitAccepted(4));
    std::erase_if(script_.accepted, [&](std::int64_t result) { return result == other || result == next; });
    EXPECT_EQ(script_.accepted, (std::vector{bad, behind}));
}

TEST_F(DeliverTest, WhatWouldEndItsFrameIsHeld) {
    options_.standard = false;
    options_.type = DestinationType::kMllp;
    AppendNow(store_, "A1", ResultMessage("Rex\x1C\r\x0BMSH|^~\\&|"));
    StartQueue();
    ASSERT_TRUE(WaitHeld(1));
    EXPECT_TRUE(script_.attempts.empty());
}

TEST_F(DeliverTest, WhatCannotBeMadeStandardIsHeldWithItsReason) {
    AppendNow(store_, "A1", ResultMessage("Rex") + "ZZZ|1\r");
    StartQueue();
    ASSERT_TRUE(WaitHeld(1));
    EXPECT_NE(reader_.Deliveries("lis", DeliveryState::kHeld, 1).at(0).reason.find("ZZZ"), std::string::npos);
    EXPECT_TRUE(script_.attempts.empty());
}

TEST_F(DeliverTest, ADirectoryGetsOneWholeFileAResultAndNoPathOfTheAnalyzers) {
    const std::string results = folder_ / "results";
    CDirectoryDestination destination(results);
    OutgoingMessage message;
    message.text = ResultMessage("Rex");
    message.serial = "../../A1/x";
    message.result = 7;
    message.received = 1'700'000'000'123;
    const auto deliver = [&] { return asio::co_spawn(context_, destination.Deliver(message), asio::use_future).get(); };
    EXPECT_EQ(deliver().verdict, Verdict::kUnreachable);  // there is no such directory
    std::filesystem::create_directory(results);
    EXPECT_EQ(deliver().verdict, Verdict::kAccepted);
    EXPECT_EQ(deliver().verdict, Verdict::kAccepted);
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(results)) {
        names.push_back(entry.path().filename());
    }
    EXPECT_EQ(names, std::vector<std::string>{"20231114-221320-______A1_x-7.hl7"});
    EXPECT_EQ(UnitTest::ReadFile(results + "/" + names.at(0)), message.text);
}

}  // namespace
}  // namespace ZELPC
