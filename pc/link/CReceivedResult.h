#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <string>

namespace ZELPC {

/// One result as an analyzer sent it, and the one way to acknowledge it.
///
/// **An acknowledged result is marked as sent at the analyzer and never comes again. Acknowledge it only when it is
/// stored where neither a crash nor a power cut takes it away.** What is not acknowledged comes again when the
/// analyzer's operator has it sent again.
///
/// The analyzer waits about 2.3 s, and takes an acknowledgement for the result that it is waiting for at that moment,
/// whichever was meant: one that comes late would mark another result. So an acknowledgement is only sent while it can
/// only mean this result: on the same connection, within `kPatience` of its arrival, and before another result came.
///
/// Any thread may use it. It may outlive its link, but not the io_context. Dropping it without acknowledgement is
/// allowed and means "not stored"; a link takes further results only while at most kMaxPending of its results are
/// alive.
class CReceivedResult {
public:
    static constexpr std::chrono::milliseconds kPatience{2000};
    static constexpr int kMaxPending = 2;

    /// `send` puts the acknowledgement onto the connection that the result came from, from any thread; `released` is
    /// called when the result is gone. `age` is how long the result may have waited to be read.
    CReceivedResult(std::string serial, std::string text, std::chrono::steady_clock::duration age,
                    std::function<void()> send, std::function<void()> released);
    CReceivedResult(const CReceivedResult&) = delete;
    CReceivedResult& operator=(const CReceivedResult&) = delete;
    ~CReceivedResult();

    /// The serial number of the analyzer.
    const std::string& Serial() const { return serial_; }

    /// The payload as it came, at most 32760 bytes: an HL7 message (docs/hl7.md), or a header alone, or empty, or, from
    /// an analyzer that is none, anything.
    const std::string& Text() const { return text_; }

    /// When its last byte came.
    std::chrono::system_clock::time_point Received() const { return received_; }

    /// Tells the analyzer that the result is stored. True when the acknowledgement was handed to the connection, which
    /// may still lose it; false when it was too late, the connection is gone or it was acknowledged before. Either way
    /// the analyzer may send the same result again, and storing it must not make two of it.
    [[nodiscard]] bool Acknowledge();

    /// It may not be acknowledged any more: the connection ended or another result came. For the link.
    void Expire() { open_ = false; }

private:
    const std::string serial_;
    const std::string text_;
    const std::function<void()> send_;
    const std::function<void()> released_;
    const std::chrono::system_clock::time_point received_;
    const std::chrono::steady_clock::time_point deadline_;
    std::atomic<bool> open_{true};
};

}  // namespace ZELPC
