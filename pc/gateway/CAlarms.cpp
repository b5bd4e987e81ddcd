#include "gateway/CAlarms.h"

#include <fcntl.h>
#include <spawn.h>
#include <spdlog/spdlog.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <boost/asio/post.hpp>
#include <chrono>
#include <csignal>
#include <cstring>
#include <thread>

#include "base/Clock.h"

namespace ZELPC {

namespace {

constexpr auto kLongestRun = std::chrono::seconds(30);
constexpr int kMostUntold = 100;  // runs of the program that wait for those before

const Alarm* Find(const std::vector<Alarm>& alarms, const Alarm& wanted) {
    const auto found = std::ranges::find_if(
        alarms, [&wanted](const Alarm& alarm) { return alarm.kind == wanted.kind && alarm.name == wanted.name; });
    return found == alarms.end() ? nullptr : &*found;
}

/// Waits for a child, but not for ever, and not beyond the gateway's end. It goes with whatever it has started.
void Await(pid_t child, const std::atomic<bool>& ending) {
    const auto end = std::chrono::steady_clock::now() + kLongestRun;
    int status = 0;
    while (::waitpid(child, &status, WNOHANG) == 0) {
        if (ending || std::chrono::steady_clock::now() > end) {
            spdlog::error("the alarm's program is ended: {}", ending ? "the gateway ends" : "it ran too long");
            ::kill(-child, SIGKILL);
            ::waitpid(child, &status, 0);
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    if (status != 0) {
        spdlog::error("the alarm's program failed with status {}", status);
    }
}

void Run(const std::string& command, std::vector<std::string> environment, const std::atomic<bool>& ending) {
    for (char** variable = environ; *variable != nullptr; ++variable) {
        environment.emplace_back(*variable);
    }
    std::vector<char*> variables;
    for (std::string& variable : environment) {
        variables.push_back(variable.data());
    }
    variables.push_back(nullptr);
    std::string path = command;
    char* const arguments[] = {path.data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    // The program has no business with the gateway's connections.
    posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    pid_t child = 0;
    const int error = ::posix_spawn(&child, command.c_str(), &actions, &attributes, arguments, variables.data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        spdlog::error("the alarm's program {} cannot be run: {}", command, std::strerror(error));
        return;
    }
    Await(child, ending);
}

}  // namespace

CAlarms::~CAlarms() {
    Stop();
    runner_.join();
}

void CAlarms::Stop() {
    ending_ = true;
}

void CAlarms::Update(std::vector<Alarm> now) {
    std::vector<Alarm> before;
    {
        const std::lock_guard lock(mutex_);
        for (Alarm& alarm : now) {
            const Alarm* const known = Find(current_, alarm);
            alarm.since = known != nullptr ? known->since : NowMilliseconds();
        }
        before = std::exchange(current_, now);
    }
    for (const Alarm& alarm : now) {
        if (Find(before, alarm) == nullptr) {
            Tell(alarm, true);
        }
    }
    for (const Alarm& alarm : before) {
        if (Find(now, alarm) == nullptr) {
            Tell(alarm, false);
        }
    }
}

std::vector<Alarm> CAlarms::Current() const {
    const std::lock_guard lock(mutex_);
    return current_;
}

void CAlarms::Tell(const Alarm& alarm, bool begins) {
    if (begins) {
        spdlog::error("alarm: {}", alarm.text);
    } else {
        spdlog::info("the alarm is over: {}", alarm.text);
    }
    if (command_.empty() || ending_) {
        return;
    }
    if (untold_ == kMostUntold) {
        spdlog::error("the alarm's program is not run: earlier calls of it have not come to an end");
        return;
    }
    ++untold_;
    boost::asio::post(runner_, [this, alarm, begins] {
        if (!ending_) {
            Run(command_,
                {"ZELPC_ALARM=" + std::string(begins ? "begins" : "ends"), "ZELPC_ALARM_KIND=" + alarm.kind,
                 "ZELPC_ALARM_NAME=" + alarm.name, "ZELPC_ALARM_TEXT=" + alarm.text},
                ending_);
        }
        --untold_;
    });
}

}  // namespace ZELPC
