#include <gtest/gtest.h>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/use_future.hpp>
#include <boost/asio/write.hpp>
#include <thread>

#include "Results.h"
#include "deliver/CMllpDestination.h"

namespace ZELPC {
namespace {

using asio::ip::tcp;

std::string Ack(const std::string& code, const std::string& controlId, const std::string& rest = "") {
    return "\x0BMSH|^~\\&|LIS||||2026||ACK|77|P|2.5.1\rSFT|x\rMSA|" + code + "|" + controlId + rest + "\r\x1C\r";
}

/// A LIS that plays a script: for each connection, an answer to each message; "close" closes instead.
class CScriptedLis {
public:
    using Script = std::vector<std::vector<std::string>>;

    explicit CScriptedLis(Script script) : script_(std::move(script)), thread_([this] { Serve(); }) {}
    ~CScriptedLis() {
        acceptor_.close();
        ending_ = true;
        tcp::socket last(context_);
        boost::system::error_code ignored;
        last.connect(endpoint_, ignored);
        thread_.join();
    }

    std::string Port() const { return std::to_string(endpoint_.port()); }
    int Messages() const { return messages_; }

private:
    void Serve() {
        for (const auto& answers : script_) {
            tcp::socket socket(context_);
            boost::system::error_code error;
            acceptor_.accept(socket, error);
            Answer(socket, answers);
        }
    }
    void Answer(tcp::socket& socket, const std::vector<std::string>& answers) {
        boost::system::error_code error;
        std::string input;
        for (const std::string& answer : answers) {
            input.erase(0, asio::read_until(socket, asio::dynamic_buffer(input), "\x1C\r", error));
            if (error || ending_) {
                return;
            }
            ++messages_;
            if (answer == "close") {
                return;
            }
            asio::write(socket, asio::buffer(answer), error);
        }
        // Stays silent until the other side goes.
        char byte = 0;
        socket.read_some(asio::buffer(&byte, 1), error);
    }

    const Script script_;
    asio::io_context context_;
    tcp::acceptor acceptor_{context_, {asio::ip::address_v4::loopback(), 0}};
    const tcp::endpoint endpoint_ = acceptor_.local_endpoint();
    std::atomic<int> messages_ = 0;
    std::atomic<bool> ending_ = false;
    std::thread thread_;
};

struct Sent {
    std::vector<DeliveryOutcome> outcomes;
    int received = 0;
};

/// Sends messages "M0", "M1", ... through one destination, one after the other.
Sent Send(CScriptedLis::Script script, int count, bool unique = true) {
    CScriptedLis lis(std::move(script));
    asio::io_context context;
    DestinationOptions options;
    options.host = "127.0.0.1";
    options.port = lis.Port();
    options.answerTimeout = std::chrono::milliseconds(1000);
    CMllpDestination destination(context.get_executor(), options);
    Sent sent;
    for (int number = 0; number < count; ++number) {
        OutgoingMessage message;
        message.controlId = unique ? "M" + std::to_string(number) : "0";
        message.uniqueControlId = unique;
        message.text = "MSH|^~\\&|||||||OUL|" + message.controlId + "\rPID|\r";
        auto outcome = asio::co_spawn(context, destination.Deliver(message), asio::use_future);
        context.restart();
        context.run();
        sent.outcomes.push_back(outcome.get());
    }
    sent.received = lis.Messages();
    return sent;
}

TEST(MllpTest, EachAnswerMeansWhatItSays) {
    const std::string megabyte(1 << 20, 'x');
    const struct {
        std::string answer;
        Verdict verdict;
        const char* reason;
    } cases[] = {
        {Ack("AA", "M0"), Verdict::kAccepted, ""},
        {"noise\r\n" + Ack("CA", "M0"), Verdict::kAccepted, ""},
        {Ack("AE", "M0", "|busy"), Verdict::kTryAgain, "AE: busy"},
        {Ack("CE", "M0"), Verdict::kTryAgain, "CE"},
        {Ack("AR", "M0", "\rERR||PID^1|204^unknown patient|E"), Verdict::kRejected, "AR: 204^unknown patient"},
        {Ack("CR", "M0"), Verdict::kRejected, "CR"},
        {Ack("ZZ", "M0"), Verdict::kNoAnswer, "unknown code"},
        {Ack("AA", "M1") + Ack("AA", "") + Ack("AR", "M0"), Verdict::kRejected, "AR"},
        {Ack("AA", "M1"), Verdict::kNoAnswer, "answered for message \"M1\""},
        {"\x0BHTTP/1.1 400 Bad Request\x1C\r", Verdict::kNoAnswer, "not an HL7"},
        {"\x0BMSH|", Verdict::kNoAnswer, "no answer within"},
        {"\x0B" + megabyte + "\x1C\r", Verdict::kNoAnswer, "too long"},
        {megabyte, Verdict::kNoAnswer, "too long"},
        {"close", Verdict::kNoAnswer, "closed without"},
    };
    for (const auto& one : cases) {
        const Sent sent = Send({{one.answer}}, 1);
        EXPECT_EQ(sent.outcomes[0].verdict, one.verdict) << one.answer.substr(0, 99);
        EXPECT_NE(sent.outcomes[0].reason.find(one.reason), std::string::npos) << sent.outcomes[0].reason;
    }
}

TEST(MllpTest, AConnectionThatWasClosedMeanwhileIsMadeAnew) {
    const Sent sent = Send({{Ack("AA", "M0"), "close"}, {Ack("AA", "M1"), Ack("AA", "M2")}}, 3);
    for (const DeliveryOutcome& outcome : sent.outcomes) {
        EXPECT_EQ(outcome.verdict, Verdict::kAccepted) << outcome.reason;
    }
    EXPECT_EQ(sent.received, 4);  // the one that met the closing connection went out twice
}

TEST(MllpTest, AnAnswerTooManyIsNotTakenForTheNextMessages) {
    // The analyzer's own control ID is the same in every message. A second answer to the first message must not accept
    // the second one, which the LIS rejects.
    for (const std::string& first : {Ack("CA", "0") + Ack("AA", "0"), Ack("AA", "0") + Ack("AA", "0")}) {
        const Sent sent = Send({{first}, {Ack("AR", "0")}}, 2, false);
        EXPECT_EQ(sent.outcomes[0].verdict, Verdict::kAccepted);
        EXPECT_EQ(sent.outcomes[1].verdict, Verdict::kRejected) << sent.outcomes[1].reason;
    }
}

TEST(MllpTest, ALisThatIsNotThereIsUnreachable) {
    asio::io_context context;
    DestinationOptions options;
    options.host = "127.0.0.1";
    options.port = "1";
    CMllpDestination destination(context.get_executor(), options);
    auto outcome = asio::co_spawn(context, destination.Deliver({}), asio::use_future);
    context.run();
    EXPECT_EQ(outcome.get().verdict, Verdict::kUnreachable);
}

}  // namespace
}  // namespace ZELPC
