#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Host {

/// The directory that plays the device, looked up and made when missing at each call of the library. Operations throw
/// std::system_error.
class Device {
public:
    /// Opens the device for one call of the library and puts the call, given as its words, into calls.log.
    explicit Device(const std::vector<std::string>& call);

    std::string Path(std::string_view name) const { return std::string(directory_).append("/").append(name); }

    /// The value of the first `name=value` line of the file; nothing when the file or the line is missing.
    std::optional<std::string> Value(const char* file, std::string_view name) const;

    /// Whether the file has exactly this line.
    bool HasLine(const char* file, std::string_view line) const;

    /// The lines of the file without trailing blanks; none when it is missing.
    std::vector<std::string> Lines(const char* file) const;

    /// Replaces one of the device's files as a whole.
    void Replace(const char* file, std::string_view content) const;

    /// Opens one of the device's files for writing, and makes it and its directory when missing. Returns a descriptor,
    /// or -1 with errno.
    int OpenToWrite(const std::string& path, int flags) const;

private:
    std::string directory_;
};

/// The value of the first `name=value` among the lines.
std::optional<std::string> ValueIn(const std::vector<std::string>& lines, std::string_view name);

/// The names of the images in versions.cfg, by image id.
inline constexpr const char* kImageNames[] = {"BOOT", "KERNEL", "ROOTFS", "APP", "QTE", "DSP", "XML", "SYS"};

/// Exceptions end at the C interface: runs the call and turns them into `failed`.
template <typename Result, typename Call>
Result Guarded(Result failed, Call call) noexcept {
    try {
        return call();
    } catch (...) {
        return failed;
    }
}

}  // namespace Host
