// The levels as they stand in the log.
#define SPDLOG_LEVEL_NAMES \
    { "TRACE", "DEBUG", "INFO", "WARNING", "ERROR", "CRITICAL", "OFF" }
#include <spdlog/details/fmt_helper.h>
#include <spdlog/formatter.h>
#include <spdlog/sinks/rotating_file_sink.h>

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/Log.h"

namespace QENFx::Log {

namespace {

constexpr std::size_t kFileSize = 1024 * 1024;
constexpr std::size_t kOldFiles = 3;
constexpr std::chrono::seconds kRetryInterval{1};

std::string LogFileName() {
    const char* directory = std::getenv("ZEL_LOG_DIR");
    return std::string(directory != nullptr && *directory != '\0' ? directory : "/data/log") + "/ZELRmUp.log";
}

/// Lines of the form "YYYY-mm-dd HH:MM:SS.mmm NAME LEVEL TEXT", in local time. What changes once a second is made once
/// a second: an update writes thousands of lines in one.
class LineFormatter final : public spdlog::formatter {
public:
    void format(const spdlog::details::log_msg& message, spdlog::memory_buf_t& line) override {
        namespace helper = spdlog::details::fmt_helper;
        const auto second = std::chrono::time_point_cast<std::chrono::seconds>(message.time);
        if (second != second_ || length_ == 0) {
            const std::tm local = spdlog::details::os::localtime(spdlog::log_clock::to_time_t(second));
            length_ = std::strftime(text_, sizeof text_, "%Y-%m-%d %H:%M:%S.", &local);
            second_ = second;
        }
        helper::append_string_view({text_, length_}, line);
        helper::pad3(static_cast<unsigned>(helper::time_fraction<std::chrono::milliseconds>(message.time).count()),
                     line);
        line.push_back(' ');
        helper::append_string_view(message.logger_name, line);
        line.push_back(' ');
        helper::append_string_view(spdlog::level::to_string_view(message.level), line);
        line.push_back(' ');
        helper::append_string_view(message.payload, line);
        line.push_back('\n');
    }

    std::unique_ptr<spdlog::formatter> clone() const override { return std::make_unique<LineFormatter>(); }

private:
    std::chrono::time_point<spdlog::log_clock, std::chrono::seconds> second_;
    char text_[64] = "";  // of that second
    std::size_t length_ = 0;
};

class RotatingLog final : public Logger {
public:
    class Channel final : public FileLog {
    public:
        Channel(RotatingLog& log, const char* name) : log_(log), name_(name) {}

        void Write(spdlog::level::level_enum level, const char* format, va_list arguments) {
            char buffer[1024];
            va_list repeated;
            va_copy(repeated, arguments);
            const int length = std::vsnprintf(buffer, sizeof buffer, format, repeated);
            va_end(repeated);
            if (length < 0) {
                // Not printable in this locale; the bare format still tells where it came from.
                log_.Append(*this, level, format);
            } else if (static_cast<std::size_t>(length) < sizeof buffer) {
                log_.Append(*this, level, {buffer, static_cast<std::size_t>(length)});
            } else {
                std::string text(static_cast<std::size_t>(length), '\0');
                std::vsnprintf(text.data(), text.size() + 1, format, arguments);
                log_.Append(*this, level, text);
            }
        }

    private:
        friend class RotatingLog;

        RotatingLog& log_;
        const std::string name_;
        bool closed_ = false;
    };

    static RotatingLog& Instance() {
        // Never destroyed: other threads may log while the process exits.
        static RotatingLog* const instance = new RotatingLog;
        return *instance;
    }

    Channel* OpenChannel(const char* name) {
        const std::lock_guard lock(mutex_);
        for (const auto& channel : channels_) {
            if (!channel->closed_ && channel->name_ == name) {
                return channel.get();
            }
        }
        channels_.push_back(std::make_unique<Channel>(*this, name));
        return channels_.back().get();
    }

    void Close() {
        const std::lock_guard lock(mutex_);
        for (const auto& channel : channels_) {
            channel->closed_ = true;
        }
        sink_.reset();
        retryAt_ = {};
    }

private:
    /// The sink alone, without spdlog's loggers, whose registry dies in the middle of the process's exit.
    using Sink = spdlog::sinks::rotating_file_sink_st;

    static std::unique_ptr<Sink> OpenSink() {
        spdlog::file_event_handlers handlers;
        // Unbuffered, a line is in the file when its write returns, and the exit of the process finds nothing to flush
        // while another thread is writing.
        handlers.after_open = [](const spdlog::filename_t&, std::FILE* file) {
            std::setvbuf(file, nullptr, _IONBF, 0);
        };
        auto sink = std::make_unique<Sink>(LogFileName(), kFileSize, kOldFiles, false, handlers);
        sink->set_formatter(std::make_unique<LineFormatter>());
        return sink;
    }

    void Append(const Channel& channel, spdlog::level::level_enum level, std::string_view text) {
        const std::lock_guard lock(mutex_);
        if (channel.closed_ || (!sink_ && std::chrono::steady_clock::now() < retryAt_)) {
            return;
        }
        try {
            if (!sink_) {
                sink_ = OpenSink();
            }
            sink_->log(spdlog::details::log_msg(channel.name_, level, {text.data(), text.size()}));
        } catch (const std::exception& error) {
            // After a failed rotation the sink has no file any more, so it is opened anew; not at every line, because
            // that takes spdlog a few attempts.
            sink_.reset();
            retryAt_ = std::chrono::steady_clock::now() + kRetryInterval;
            if (!complained_) {
                complained_ = true;
                std::fprintf(stderr, "Log lines are lost: %s\n", error.what());
            }
        }
    }

    std::mutex mutex_;
    std::vector<std::unique_ptr<Channel>> channels_;
    std::unique_ptr<Sink> sink_;
    std::chrono::steady_clock::time_point retryAt_{};
    bool complained_ = false;
};

}  // namespace

void FileLog::WriteInfo(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    static_cast<RotatingLog::Channel*>(this)->Write(spdlog::level::info, format, arguments);
    va_end(arguments);
}

void FileLog::WriteError(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    static_cast<RotatingLog::Channel*>(this)->Write(spdlog::level::err, format, arguments);
    va_end(arguments);
}

FileLog* Logger::getLog(const char* name) {
    return static_cast<RotatingLog*>(this)->OpenChannel(name);
}

Logger* Logger::getLogger() {
    return &RotatingLog::Instance();
}

void Logger::DestroyLogger() {
    RotatingLog::Instance().Close();
}

}  // namespace QENFx::Log
