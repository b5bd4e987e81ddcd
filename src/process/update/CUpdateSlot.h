#pragma once

#include <optional>

namespace RMUP::Process {

/// The right to run the update worker. There is one, and it lives as long as its worker, so that no second worker can
/// be started beside one that still ends, whatever the device's status says by then. Any thread may call.
///
/// Who has heard a worker's last report may ask for the next update before that worker has ended: whoever finds an
/// ending worker waits for its end, five seconds at most.
class CUpdateSlot {
public:
    /// None while another worker lives.
    [[nodiscard]] static std::optional<CUpdateSlot> Take();

    /// Whether a worker lives. Does not wait.
    static bool IsTaken();

    /// Returns at once unless a worker is ending.
    static void WaitEnd();

    /// The worker that lives is ending: called before its last report goes out. Without a worker nothing happens.
    static void BeginEnd();

    CUpdateSlot(CUpdateSlot&& other) noexcept;
    CUpdateSlot& operator=(CUpdateSlot&&) = delete;
    CUpdateSlot(const CUpdateSlot&) = delete;
    CUpdateSlot& operator=(const CUpdateSlot&) = delete;
    ~CUpdateSlot();

private:
    CUpdateSlot() = default;

    bool held_ = true;
};

}  // namespace RMUP::Process
