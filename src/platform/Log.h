#pragma once

namespace QENFx::Log {

/// One named channel of the log. Owned by the Logger; a pointer to it stays valid until the process ends. Any thread
/// may write, and lines of several threads stay whole; a line is in the file before the call returns. Formats are
/// printf's. A line that cannot be written is lost, and nobody is told.
class FileLog {
public:
    FileLog(const FileLog&) = delete;
    FileLog& operator=(const FileLog&) = delete;

    void WriteInfo(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void WriteError(const char* format, ...) __attribute__((format(printf, 2, 3)));

protected:
    FileLog() = default;
    ~FileLog() = default;
};

class Logger {
public:
    /// The process-wide logger, made on first use; never null. From any thread.
    static Logger* getLogger();

    /// Closes the log files. Once, when no other thread makes a channel. Channels handed out before stay valid and drop
    /// what is written to them.
    static void DestroyLogger();

    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    /// The channel of that name, opened on first use; never null, also when its file cannot be opened. From any thread.
    FileLog* getLog(const char* name);

protected:
    Logger() = default;
    ~Logger() = default;
};

}  // namespace QENFx::Log
