#pragma once

#include "platform/Log.h"

/// A log for one operation: every line begins with the operation's tag and a blank. Made where the operation begins;
/// log and tag outlive it. Any thread may write through one of its own, and a line is in the file before the call
/// returns.
class CTaggedLog {
public:
    CTaggedLog(QENFx::Log::FileLog* log, const char* tag) : log_(log), tag_(tag) {}

    /// Formats are printf's. A text ends at its first NUL, also where a %c wrote that.
    void WriteInfo(const char* format, ...) const __attribute__((format(printf, 2, 3)));
    void WriteError(const char* format, ...) const __attribute__((format(printf, 2, 3)));

private:
    QENFx::Log::FileLog* log_;
    const char* tag_;
};
