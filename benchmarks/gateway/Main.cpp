/// What the gateway is measured with and beside:
///
///     zelrm_gateway_peers analyzers COUNT TEXT     COUNT light analyzers from 127.20.0.1 on, that obey lines on stdin:
///                                                  "rate R SECONDS" and "count N"; in between they live
///     zelrm_gateway_peers receive PORT             an HL7 receiver that obeys "count N"
///     zelrm_gateway_peers send PORT TEXT           a bare HL7 client, likewise
///     zelrm_gateway_peers commit FILE TEXT         bare commits of that text to a SQLite database, likewise
///
/// Each line is answered with what it took, as JSON. The first line of each says that it is ready.

#include <poll.h>
#include <sqlite3.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <sstream>

#include "CAnalyzers.h"
#include "Mllp.h"

namespace {

constexpr std::uint32_t kLoopback = 0x7F000001;
constexpr std::uint32_t kFirstAnalyzer = 0x7F140001;

using Order = std::function<void(std::istream& words)>;

/// Carries out one order after the other until the input ends. `idle` is called over and over until the next one comes.
void Obey(const Order& order, const std::function<void()>& idle = {}) {
    std::cout << "ready" << std::endl;
    for (std::string line;;) {
        pollfd input{STDIN_FILENO, POLLIN, 0};
        while (idle && poll(&input, 1, 0) == 0) {
            idle();
        }
        if (!std::getline(std::cin, line)) {
            return;
        }
        std::istringstream words(line);
        order(words);
        std::cout << std::endl;
    }
}

std::string ReadFile(const char* path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void TellTimes(std::vector<double> times) {
    std::ranges::sort(times);
    const auto at = [&times](double part) {
        return times[static_cast<std::size_t>(part * static_cast<double>(times.size() - 1))];
    };
    const auto lost = std::ranges::count_if(times, [](double time) { return time > 1e9; });
    std::cout << R"({"count": )" << times.size() << R"(, "lost": )" << lost << R"(, "p50": )" << at(0.5)
              << R"(, "p99": )" << std::min(at(0.99), 1e9) << "}";
}

double Seconds(const auto& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void TellSeconds(double seconds) {
    std::cout << R"({"seconds": )" << seconds << "}";
}

std::int64_t CountOf(std::istream& words) {
    std::string name;
    std::int64_t count = 0;
    words >> name >> count;
    return count;
}

void PlayAnalyzers(int count, const char* text) {
    CAnalyzers analyzers(kFirstAnalyzer, count, ReadFile(text));
    analyzers.WaitForRegistrations();
    const auto order = [&](std::istream& words) {
        std::string name;
        double number = 0;
        double seconds = 0;
        words >> name >> number >> seconds;
        TellTimes(name == "rate" ? analyzers.Send(number, std::chrono::duration<double>(seconds))
                                 : analyzers.SendCount(static_cast<std::int64_t>(number)));
    };
    Obey(order, [&] { analyzers.Serve(CAnalyzers::Clock::now() + std::chrono::milliseconds(20)); });
}

void PlayReceiver(std::uint16_t port) {
    const CSocket listener = CSocket::Bound(SOCK_STREAM, kLoopback, port);
    Obey([&](std::istream& words) { TellSeconds(Mllp::Receive(listener, CountOf(words))); });
}

void PlaySender(std::uint16_t port, const char* text) {
    const std::string frame = Mllp::Frame(ReadFile(text));
    Obey([&](std::istream& words) {
        const std::int64_t count = CountOf(words);
        TellSeconds(Seconds([&] { Mllp::Send(CSocket::Connected(kLoopback, port), frame, count); }));
    });
}

void Do(sqlite3* database, const char* statement) {
    if (sqlite3_exec(database, statement, nullptr, nullptr, nullptr) != SQLITE_OK) {
        Give(sqlite3_errmsg(database));
    }
}

/// With the settings of the gateway's store.
void PlayCommits(const char* file, const char* text) {
    sqlite3* database = nullptr;
    sqlite3_open(file, &database);
    Do(database, "PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL");
    Do(database, "CREATE TABLE IF NOT EXISTS bare (id INTEGER PRIMARY KEY, text TEXT)");
    sqlite3_stmt* insert = nullptr;
    sqlite3_prepare_v2(database, "INSERT INTO bare (text) VALUES (?)", -1, &insert, nullptr);
    const std::string content = ReadFile(text);
    Obey([&](std::istream& words) {
        std::vector<double> times(static_cast<std::size_t>(CountOf(words)));
        std::ranges::generate(times, [&] {
            return Seconds([&] {
                sqlite3_bind_text(insert, 1, content.data(), static_cast<int>(content.size()), SQLITE_STATIC);
                if (sqlite3_step(insert) != SQLITE_DONE || sqlite3_reset(insert) != SQLITE_OK) {
                    Give(sqlite3_errmsg(database));
                }
            });
        });
        TellTimes(std::move(times));
    });
    sqlite3_finalize(insert);
    sqlite3_close(database);
}

}  // namespace

int main(int count, char** arguments) {
    const std::string play = count >= 3 ? arguments[1] : "";
    const auto number = play.empty() ? 0 : std::atoi(arguments[2]);
    if (play == "analyzers" && count == 4) {
        PlayAnalyzers(number, arguments[3]);
    } else if (play == "receive") {
        PlayReceiver(static_cast<std::uint16_t>(number));
    } else if (play == "send" && count == 4) {
        PlaySender(static_cast<std::uint16_t>(number), arguments[3]);
    } else if (play == "commit" && count == 4) {
        PlayCommits(arguments[2], arguments[3]);
    } else {
        std::cerr << "usage: " << arguments[0]
                  << " analyzers COUNT TEXT | receive PORT | send PORT TEXT | commit FILE TEXT\n";
        return 2;
    }
    return 0;
}
