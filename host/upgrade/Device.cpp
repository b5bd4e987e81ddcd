#include "upgrade/Device.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "files/Files.h"

namespace Host {

namespace {

constexpr std::size_t kMaxFileSize = 1024 * 1024;

}  // namespace

Device::Device(const std::vector<std::string>& call) {
    const char* named = std::getenv("ZEL_DEVICE_DIR");
    directory_ = named != nullptr && *named != '\0' ? named : "/data/device";

    std::string line;
    for (const std::string& word : call) {
        line.append(line.empty() ? "" : " ").append(word);
    }
    std::replace_if(
        line.begin(), line.end(), [](unsigned char c) { return c < ' '; }, '?');
    line += '\n';
    const FileDescriptor log(OpenToWrite(Path("calls.log"), O_APPEND));
    // One write, so that the lines of several threads do not mix.
    if (!log || ::write(log.get(), line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        throw std::system_error(errno, std::generic_category(), Path("calls.log"));
    }
}

int Device::OpenToWrite(const std::string& path, int flags) const {
    const auto open = [&] { return ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | flags, 0644); };
    const int file = open();
    if (file >= 0 || errno != ENOENT) {
        return file;
    }
    // Only once in a device's life is there no directory yet.
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    return open();
}

std::optional<std::string> Device::Value(const char* file, std::string_view name) const {
    return ValueIn(Lines(file), name);
}

std::optional<std::string> ValueIn(const std::vector<std::string>& lines, std::string_view name) {
    for (const std::string& line : lines) {
        if (line.size() > name.size() && line.starts_with(name) && line[name.size()] == '=') {
            return line.substr(name.size() + 1);
        }
    }
    return std::nullopt;
}

bool Device::HasLine(const char* file, std::string_view line) const {
    const std::vector<std::string> lines = Lines(file);
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

void Device::Replace(const char* file, std::string_view content) const {
    const DirectoryLock lock(directory_);
    ReplaceFile(lock, Path(file), content);
}

std::vector<std::string> Device::Lines(const char* file) const {
    std::vector<std::string> lines;
    const auto content = ReadFileIfThere(Path(file), kMaxFileSize);
    std::string_view rest = content ? *content : std::string_view();
    while (!rest.empty()) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        lines.emplace_back(line.substr(0, line.find_last_not_of(" \t\r") + 1));
    }
    return lines;
}

}  // namespace Host
