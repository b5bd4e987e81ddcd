#include "link/CLinkSession.h"

#include <gtest/gtest.h>

#include <array>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>

#include "link/NoThrow.h"
#include "packet/Requests.h"
#include "wire/PCCommand.h"

using namespace ZELPC;
namespace asio = boost::asio;
using asio::ip::tcp;

namespace {

Buffer ResultPacket(const std::string& text) {
    return MakePacket({.command = PCCommand::kResult, .tag = 1, .subTag = '1'}, Buffer(text.begin(), text.end()));
}

/// A session with an analyzer that sends what a test says and counts what is acknowledged.
class LinkSessionTest : public testing::Test {
protected:
    LinkSessionTest()
        : acceptor_(context_, {asio::ip::address_v4::loopback(), kAnalyzerTCPPort}),
          strand_(asio::make_strand(context_)) {}

    /// Connects, lets the analyzer send these results in one piece, and runs until so many have come.
    void Receive(const std::vector<std::string>& texts, std::size_t expected) {
        HubSettings settings;
        settings.udpPort = 0;
        const auto port = std::make_shared<CDatagramPort>(context_, settings);
        SessionHandlers handlers;
        handlers.result = [this](std::shared_ptr<CReceivedResult> result) { results_.push_back(std::move(result)); };
        session_ = std::make_shared<CLinkSession>(strand_, port, std::make_shared<ResultSlots>(strand_), handlers);
        asio::co_spawn(context_, Serve(texts), asio::detached);
        asio::co_spawn(strand_, Open(), asio::detached);
        RunUntil([&] { return results_.size() == expected; });
    }

    template <typename Condition>
    void RunUntil(Condition condition) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (!condition() && std::chrono::steady_clock::now() < end) {
            context_.run_one_for(std::chrono::milliseconds(100));
        }
        ASSERT_TRUE(condition());
    }

    asio::io_context context_;
    std::vector<std::shared_ptr<CReceivedResult>> results_;
    std::shared_ptr<CLinkSession> session_;
    int acknowledgements_ = 0;

private:
    asio::awaitable<void> Serve(std::vector<std::string> texts) {
        tcp::socket analyzer = co_await acceptor_.async_accept(asio::use_awaitable);
        Buffer stream;
        for (const std::string& text : texts) {
            const Buffer packet = ResultPacket(text);
            stream.insert(stream.end(), packet.begin(), packet.end());
        }
        co_await asio::async_write(analyzer, asio::buffer(stream), asio::use_awaitable);
        std::array<std::uint8_t, Wire::kPCHeaderSize> header{};
        for (;;) {
            const auto [error, size] = co_await asio::async_read(analyzer, asio::buffer(header), kNoThrow);
            if (error) {
                co_return;
            }
            acknowledgements_ += Wire::ParsePCHeader(header).command == PCCommand::kResult ? 1 : 0;
        }
    }

    asio::awaitable<void> Open() {
        const std::string serial = "S1";
        co_await session_->Open(asio::ip::address_v4::loopback(), serial);
    }

    tcp::acceptor acceptor_;
    Strand strand_;
};

}  // namespace

// Faults: an acknowledgement that the analyzer takes for another result, one that is sent twice, results that pile up
// while their receiver is slow.
TEST_F(LinkSessionTest, AcknowledgesOnlyWhatCanBeMeant) {
    Receive({"first", "second", "third"}, 2);
    EXPECT_EQ(results_[0]->Text() + results_[1]->Text() + results_[0]->Serial(), "firstsecondS1");
    EXPECT_FALSE(results_[0]->Acknowledge()) << "another one came since";
    context_.run_for(std::chrono::milliseconds(50));
    EXPECT_EQ(results_.size(), 2U) << "the third waits until one of them is gone";

    results_.erase(results_.begin());
    RunUntil([&] { return results_.size() == 2; });
    EXPECT_EQ(results_[1]->Text(), "third");
    EXPECT_FALSE(results_[0]->Acknowledge());
    EXPECT_TRUE(results_[1]->Acknowledge());
    EXPECT_FALSE(results_[1]->Acknowledge()) << "once is enough";
    RunUntil([&] { return acknowledgements_ == 1; });
    context_.run_for(std::chrono::milliseconds(50));
    EXPECT_EQ(acknowledgements_, 1);
}

// Faults: an acknowledgement that comes so late that the analyzer waits for another result, or on a dead connection.
TEST_F(LinkSessionTest, DoesNotAcknowledgeTooLate) {
    Receive({"only"}, 1);
    session_->Close("test");
    context_.run_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(results_[0]->Acknowledge());

    int sent = 0;
    CReceivedResult late(
        "S1", "text", CReceivedResult::kPatience, [&] { ++sent; }, [] {});
    EXPECT_FALSE(late.Acknowledge());
    EXPECT_EQ(sent, 0);
}
