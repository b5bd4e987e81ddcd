#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <span>
#include <string>
#include <vector>

#include "CSocket.h"
#include "wire/PCPacket.h"

/// Light analyzers, any number in one thread: each answers at an address of its own as an analyzer does, takes whoever
/// registers, and sends results when it is told to, one at a time.
class CAnalyzers {
public:
    using Clock = std::chrono::steady_clock;

    /// Analyzers at `count` addresses from `first` on. They send `text`, with a patient of its own in each.
    CAnalyzers(std::uint32_t first, int count, std::string text);

    /// Serves until all are registered and known to be so.
    void WaitForRegistrations();
    /// Sends `rate` results a second from all together. Returns what the acknowledgements took, in seconds from when
    /// each result was due; those that did not come are infinite.
    std::vector<double> Send(double rate, std::chrono::duration<double> time);
    /// Sends so many results, each analyzer its next one as soon as the one before is acknowledged.
    std::vector<double> SendCount(std::int64_t count);
    /// Answers whatever comes until then.
    void Serve(Clock::time_point until);

private:
    struct Analyzer {
        bool registered = false;
        bool alive = false;                 ///< the PC has told so
        int connection = -1;                ///< that the PC holds from then on
        std::deque<Clock::time_point> due;  ///< the first one is on its way
    };
    /// A socket, by its number.
    struct Peer {
        CSocket socket;
        int analyzer = -1;
        bool datagrams = false;
        std::vector<std::uint8_t> inbox;
    };

    void Add(CSocket socket, int analyzer, bool datagrams);
    bool Waiting() const;
    void Accept();
    void TakeDatagram(Peer& peer);
    void TakeBytes(Peer& peer);
    void TakePacket(Peer& peer, const Wire::PCHeader& header, std::span<const std::uint8_t> payload);
    void Due(Analyzer& analyzer, Clock::time_point time);
    void DueAtOnce(Analyzer& analyzer);
    void Acknowledged(Analyzer& analyzer);
    void SendResult(const Analyzer& analyzer);
    std::vector<std::uint8_t> ScanAnswer(int number) const;
    std::vector<std::uint8_t> Information(const Analyzer& analyzer, int number,
                                          std::span<const std::uint8_t> items) const;
    std::string Serial(int number) const;

    const std::uint32_t first_;
    std::string text_;
    const std::size_t patient_;  ///< where it stands in the text
    std::vector<Analyzer> analyzers_;
    std::vector<Peer> peers_;
    CSocket listener_;
    CSocket poll_;
    std::vector<std::uint8_t> packet_;
    std::vector<double> times_;
    std::int64_t sent_ = 0;
    std::int64_t left_ = 0;  ///< that each acknowledgement makes due
};
