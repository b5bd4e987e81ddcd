#pragma once

namespace QENFx::Log {

/// One named channel of the log. Owned by the Logger; a pointer to it stays valid until the process ends. Any thread
/// may write; a line is in the file before the call returns. Formats are printf's.
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
    /// The process-wide logger, made on first use.
    static Logger* getLogger();

    /// Closes the log files. Channels handed out before stay valid and drop what is written to them.
    static void DestroyLogger();

    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    /// The channel of that name, opened on first use. Never null.
    FileLog* getLog(const char* name);

protected:
    Logger() = default;
    ~Logger() = default;
};

}  // namespace QENFx::Log
