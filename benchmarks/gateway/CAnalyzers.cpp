#include "CAnalyzers.h"

#include <arpa/inet.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>

#include "wire/Bytes.h"
#include "wire/PCCommand.h"

namespace {

constexpr std::uint16_t kTcpPort = 9034;
constexpr std::uint16_t kUdpPort = 9035;
constexpr std::string_view kPatient = "P-000123";
constexpr auto kPatience = std::chrono::seconds(3);
constexpr auto kRest = std::chrono::milliseconds(100);

void Append(std::vector<std::uint8_t>& to, std::string_view text, std::size_t width) {
    for (std::size_t index = 0; index < width; ++index) {
        to.push_back(index < text.size() ? static_cast<std::uint8_t>(text[index]) : 0);
    }
}

void AppendNumber(std::vector<std::uint8_t>& to, std::uint32_t value, int bytes) {
    for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) {
        to.push_back(static_cast<std::uint8_t>(value >> shift));
    }
}

}  // namespace

CAnalyzers::CAnalyzers(std::uint32_t first, int count, std::string text)
    : first_(first),
      text_(std::move(text)),
      patient_(text_.find(kPatient)),
      analyzers_(static_cast<std::size_t>(count)),
      poll_(epoll_create1(EPOLL_CLOEXEC), "epoll") {
    if (patient_ == std::string::npos) {
        Give("the text has no patient P-000123");
    }
    rlimit most{};
    getrlimit(RLIMIT_NOFILE, &most);
    most.rlim_cur = most.rlim_max;
    setrlimit(RLIMIT_NOFILE, &most);
    listener_ = CSocket::Bound(SOCK_STREAM, INADDR_ANY, kTcpPort);
    epoll_event event{EPOLLIN, {}};
    event.data.fd = listener_.Get();
    epoll_ctl(poll_.Get(), EPOLL_CTL_ADD, listener_.Get(), &event);
    for (int number = 0; number < count; ++number) {
        Add(CSocket::Bound(SOCK_DGRAM, first + static_cast<std::uint32_t>(number), kUdpPort), number, true);
    }
}

void CAnalyzers::Add(CSocket socket, int analyzer, bool datagrams) {
    const int descriptor = socket.Get();
    const auto place = static_cast<std::size_t>(descriptor);
    peers_.resize(std::max(peers_.size(), place + 1));
    peers_[place] = {std::move(socket), analyzer, datagrams, {}};
    epoll_event event{EPOLLIN, {}};
    event.data.fd = descriptor;
    epoll_ctl(poll_.Get(), EPOLL_CTL_ADD, descriptor, &event);
}

void CAnalyzers::WaitForRegistrations() {
    while (!std::ranges::all_of(analyzers_, [](const Analyzer& one) { return one.connection >= 0; })) {
        Serve(Clock::now() + kRest);
    }
}

std::vector<double> CAnalyzers::Send(double rate, std::chrono::duration<double> time) {
    times_.clear();
    const auto start = Clock::now();
    const auto count = static_cast<std::int64_t>(rate * time.count());
    const std::chrono::duration<double> step(1 / rate);
    for (std::int64_t number = 0; number < count; ++number) {
        const auto due = start + std::chrono::duration_cast<Clock::duration>(step * static_cast<double>(number));
        Serve(due);
        Due(analyzers_[static_cast<std::size_t>(number) % analyzers_.size()], due);
    }
    const auto end = Clock::now() + kPatience;
    while (Waiting() && Clock::now() < end) {
        Serve(Clock::now() + kRest);
    }
    times_.resize(static_cast<std::size_t>(count), std::numeric_limits<double>::infinity());
    return times_;
}

std::vector<double> CAnalyzers::SendCount(std::int64_t count) {
    times_.clear();
    left_ = count;
    for (Analyzer& analyzer : analyzers_) {
        DueAtOnce(analyzer);
    }
    while (Waiting()) {
        Serve(Clock::now() + kRest);
    }
    return times_;
}

bool CAnalyzers::Waiting() const {
    return std::ranges::any_of(analyzers_, [](const Analyzer& one) { return !one.due.empty(); });
}

void CAnalyzers::Serve(Clock::time_point until) {
    std::array<epoll_event, 64> events;
    for (;;) {
        const auto left = std::max(until - Clock::now(), Clock::duration::zero());
        const timespec limit{std::chrono::duration_cast<std::chrono::seconds>(left).count(),
                             (left % std::chrono::seconds(1)).count()};
        const int count = epoll_pwait2(poll_.Get(), events.data(), events.size(), &limit, nullptr);
        for (const epoll_event& event : std::span(events).first(static_cast<std::size_t>(std::max(count, 0)))) {
            if (event.data.fd == listener_.Get()) {
                Accept();
                continue;
            }
            Peer& peer = peers_[static_cast<std::size_t>(event.data.fd)];
            peer.datagrams ? TakeDatagram(peer) : TakeBytes(peer);
        }
        if (Clock::now() >= until) {
            return;
        }
    }
}

void CAnalyzers::Accept() {
    CSocket connection(accept4(listener_.Get(), nullptr, nullptr, SOCK_CLOEXEC), "accept");
    sockaddr_in own{};
    socklen_t size = sizeof(own);
    getsockname(connection.Get(), reinterpret_cast<sockaddr*>(&own), &size);
    Add(std::move(connection), static_cast<int>(ntohl(own.sin_addr.s_addr) - first_), false);
}

void CAnalyzers::TakeDatagram(Peer& peer) {
    std::array<std::uint8_t, 4096> data;
    sockaddr_in sender{};
    socklen_t size = sizeof(sender);
    const ssize_t length =
        recvfrom(peer.socket.Get(), data.data(), data.size(), 0, reinterpret_cast<sockaddr*>(&sender), &size);
    if (length < static_cast<ssize_t>(Wire::kPCHeaderSize)) {
        return;
    }
    const auto header = Wire::ParsePCHeader(std::span(data).first<Wire::kPCHeaderSize>());
    if (header.command == PCCommand::kScanDevice) {
        Wire::BuildPCPacket(
            packet_, {.command = PCCommand::kScanDeviceResponse, .tag = header.tag, .subTag = 0xFF, .checksum = true},
            ScanAnswer(peer.analyzer));
    } else if (header.command == PCCommand::kDeviceInfoChange) {
        Wire::BuildPCPacket(packet_, {.command = PCCommand::kDeviceInfoChangeAck, .tag = header.tag, .subTag = '1'},
                            {});
        analyzers_[static_cast<std::size_t>(peer.analyzer)].alive = true;
    } else {
        return;
    }
    sendto(peer.socket.Get(), packet_.data(), packet_.size(), 0, reinterpret_cast<const sockaddr*>(&sender), size);
}

void CAnalyzers::TakeBytes(Peer& peer) {
    std::array<std::uint8_t, 8192> data;
    const ssize_t length = recv(peer.socket.Get(), data.data(), data.size(), 0);
    if (length <= 0) {
        Analyzer& analyzer = analyzers_[static_cast<std::size_t>(peer.analyzer)];
        if (analyzer.connection == peer.socket.Get()) {
            analyzer = {};
        }
        peer = {};
        return;
    }
    peer.inbox.insert(peer.inbox.end(), data.begin(), data.begin() + length);
    std::span<const std::uint8_t> rest(peer.inbox);
    while (rest.size() >= Wire::kPCHeaderSize) {
        const auto header = Wire::ParsePCHeader(rest.first<Wire::kPCHeaderSize>());
        const std::size_t whole = Wire::kPCHeaderSize + header.payload;
        if (rest.size() < whole) {
            break;
        }
        TakePacket(peer, header, rest.subspan(Wire::kPCHeaderSize, header.payload));
        rest = rest.subspan(whole);
    }
    peer.inbox.erase(peer.inbox.begin(), peer.inbox.end() - static_cast<std::ptrdiff_t>(rest.size()));
}

void CAnalyzers::TakePacket(Peer& peer, const Wire::PCHeader& header, std::span<const std::uint8_t> payload) {
    Analyzer& analyzer = analyzers_[static_cast<std::size_t>(peer.analyzer)];
    Wire::PCPacketKind answer{.command = {}, .tag = header.tag, .subTag = header.subTag};
    std::vector<std::uint8_t> content;
    if (header.command == PCCommand::kGetInfo && payload.size() == 2) {
        answer.command = PCCommand::kInfo;
        content = Information(analyzer, peer.analyzer, payload);
        // The PC asks once more when it counts as connected.
        if (analyzer.alive) {
            analyzer.connection = peer.socket.Get();
        }
    } else if (header.command == PCCommand::kRegisterDevice) {
        answer.command = PCCommand::kRegisterDeviceResponse;
        content = {'1'};
        analyzer.registered = true;
    } else if (header.command == PCCommand::kResult) {
        Acknowledged(analyzer);
    }
    if (answer.command != PCCommand{}) {
        Wire::BuildPCPacket(packet_, answer, content);
        peer.socket.Write(packet_);
    }
}

std::vector<std::uint8_t> CAnalyzers::ScanAnswer(int number) const {
    std::vector<std::uint8_t> answer;
    Append(answer, Serial(number), 15);
    AppendNumber(answer, 0, 1);
    AppendNumber(answer, kTcpPort, 2);
    AppendNumber(answer, first_ + static_cast<std::uint32_t>(number), 4);
    Append(answer, {}, 10 + 4 + 10 + 14);
    Append(answer, "N62", 8);
    return answer;
}

std::vector<std::uint8_t> CAnalyzers::Information(const Analyzer& analyzer, int number,
                                                  std::span<const std::uint8_t> items) const {
    const std::uint16_t wanted = Bytes::GetBE16(items, 0);
    std::vector<std::uint8_t> info(items.begin(), items.end());
    const auto put = [&](PCInfoItem item, const auto& append) {
        if ((wanted & item) != 0) {
            append();
        }
    };
    put(kItemActivity, [&] { AppendNumber(info, 4, 1); });
    put(kItemPeerID, [&] { AppendNumber(info, 1, 1); });
    put(kItemTCPPort, [&] { AppendNumber(info, kTcpPort, 2); });
    put(kItemDeviceAddress, [&] { AppendNumber(info, first_ + static_cast<std::uint32_t>(number), 4); });
    put(kItemSerialNumber, [&] { Append(info, Serial(number), 10); });
    for (const PCInfoItem version : {kItemSYSVersion, kItemAppVersion, kItemDSPVersion, kItemXMLVersion}) {
        put(version, [&] { Append(info, "1.00.00.0001", 16); });
    }
    put(kItemRegistration, [&] { Append(info, analyzer.registered ? "\1" : "", analyzer.registered ? 1 : 15); });
    return info;
}

std::string CAnalyzers::Serial(int number) const {
    std::array<char, 16> text;
    std::snprintf(text.data(), text.size(), "N62L%06d", number);
    return text.data();
}

void CAnalyzers::Due(Analyzer& analyzer, Clock::time_point time) {
    analyzer.due.push_back(time);
    if (analyzer.due.size() == 1) {
        SendResult(analyzer);
    }
}

void CAnalyzers::DueAtOnce(Analyzer& analyzer) {
    if (left_ > 0) {
        --left_;
        Due(analyzer, Clock::now());
    }
}

void CAnalyzers::Acknowledged(Analyzer& analyzer) {
    if (analyzer.due.empty()) {
        return;
    }
    times_.push_back(std::chrono::duration<double>(Clock::now() - analyzer.due.front()).count());
    analyzer.due.pop_front();
    if (!analyzer.due.empty()) {
        SendResult(analyzer);
    }
    DueAtOnce(analyzer);
}

void CAnalyzers::SendResult(const Analyzer& analyzer) {
    const std::string number = std::to_string(++sent_);
    text_.replace(patient_, kPatient.size(), std::string(kPatient.size() - number.size(), '0') + number);
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(text_.data());
    Wire::BuildPCPacket(packet_, {.command = PCCommand::kResult, .tag = 1, .subTag = '1'}, {bytes, text_.size()});
    peers_[static_cast<std::size_t>(analyzer.connection)].socket.Write(packet_);
}
