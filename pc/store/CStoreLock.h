#pragma once

#include <string>

namespace ZELPC {

/// Keeps a second gateway away from a store, as long as this object lives. The lock goes with the process, however that
/// ends, so none is ever left over.
class CStoreLock {
public:
    /// Throws std::runtime_error when somebody holds it, naming the process, or when the file cannot be made.
    explicit CStoreLock(const std::string& path);
    ~CStoreLock();
    CStoreLock(const CStoreLock&) = delete;
    CStoreLock& operator=(const CStoreLock&) = delete;

private:
    int descriptor_;
};

}  // namespace ZELPC
