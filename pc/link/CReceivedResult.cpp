#include "link/CReceivedResult.h"

#include <utility>

namespace ZELPC {

CReceivedResult::CReceivedResult(std::string serial, std::string text, std::chrono::steady_clock::duration age,
                                 std::function<void()> send, std::function<void()> released)
    : serial_(std::move(serial)),
      text_(std::move(text)),
      send_(std::move(send)),
      released_(std::move(released)),
      received_(std::chrono::system_clock::now()),
      deadline_(std::chrono::steady_clock::now() + kPatience - age) {}

CReceivedResult::~CReceivedResult() {
    released_();
}

bool CReceivedResult::Acknowledge() {
    if (!open_.exchange(false) || std::chrono::steady_clock::now() > deadline_) {
        return false;
    }
    send_();
    return true;
}

}  // namespace ZELPC
