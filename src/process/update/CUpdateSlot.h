#pragma once

#include <atomic>
#include <optional>

namespace RMUP::Process {

/// The right to run the update worker. There is one, and it lives as long as its worker, so that no second worker can
/// be started beside one that still ends, whatever the device's status says by then.
class CUpdateSlot {
public:
    /// None while another worker lives.
    [[nodiscard]] static std::optional<CUpdateSlot> Take();

    /// Whether a worker lives.
    static bool IsTaken() { return taken_; }

    CUpdateSlot(CUpdateSlot&& other) noexcept;
    CUpdateSlot& operator=(CUpdateSlot&&) = delete;
    CUpdateSlot(const CUpdateSlot&) = delete;
    CUpdateSlot& operator=(const CUpdateSlot&) = delete;
    ~CUpdateSlot();

private:
    CUpdateSlot() = default;

    static std::atomic<bool> taken_;

    bool held_ = true;
};

}  // namespace RMUP::Process
