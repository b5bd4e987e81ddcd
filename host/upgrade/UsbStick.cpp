#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <system_error>

#include "platform/upgrade.h"
#include "upgrade/Device.h"

namespace Host {

namespace {

constexpr int kNoStick = 1;
constexpr int kMountFailed = 1;
constexpr int kDone = 0;

bool IsLinkTo(const std::filesystem::path& path, const std::filesystem::path& target) {
    std::error_code error;
    return std::filesystem::read_symlink(path, error) == target && !error;
}

bool IsSameDirectory(const std::filesystem::path& one, const std::filesystem::path& other) {
    struct stat first {};
    struct stat second {};
    return ::stat(one.c_str(), &first) == 0 && ::stat(other.c_str(), &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

int Mount(const Device& device, const std::filesystem::path& stick, const std::filesystem::path& point) {
    if (device.HasLine("faults.cfg", "usbMount=fail") || !std::filesystem::is_directory(stick)) {
        return kMountFailed;
    }
    // Still there from a process that was ended before it could unmount.
    if (IsSameDirectory(point, stick)) {
        return kDone;
    }
    std::filesystem::create_directories(point);
    if (::mount(stick.c_str(), point.c_str(), nullptr, MS_BIND, nullptr) == 0) {
        return kDone;
    }
    // Only an empty directory gives way; whatever else is there is not ours to remove.
    return ::rmdir(point.c_str()) == 0 && ::symlink(stick.c_str(), point.c_str()) == 0 ? kDone : kMountFailed;
}

int Unmount(const std::filesystem::path& stick, const std::filesystem::path& point) {
    if (IsLinkTo(point, stick)) {
        std::filesystem::remove(point);
        std::filesystem::create_directory(point);
        return kDone;
    }
    // Lazily, so that a file still open on the stick does not keep it there.
    return ::umount2(point.c_str(), MNT_DETACH | UMOUNT_NOFOLLOW) == 0 ? kDone : -1;
}

}  // namespace

}  // namespace Host

int checkUsbConnect() {
    return Host::Guarded(Host::kNoStick, [] {
        const Host::Device device({"checkUsbConnect"});
        return std::filesystem::is_directory(device.Path("usb")) ? Host::kDone : Host::kNoStick;
    });
}

int usbMount(int mount, const char* mountPoint) {
    return Host::Guarded(mount == 1 ? Host::kMountFailed : -1, [=] {
        std::string point = mountPoint == nullptr ? "" : mountPoint;
        const Host::Device device({"usbMount", std::to_string(mount), point});
        // With the slash behind it, a name means what a link leads to, never the link.
        point.erase(point.find_last_not_of('/') + 1);
        if (point.empty()) {
            return Host::kMountFailed;
        }
        // A link to the stick leads there from anywhere.
        const std::filesystem::path stick = std::filesystem::absolute(device.Path("usb"));
        return mount == 1 ? Host::Mount(device, stick, point) : Host::Unmount(stick, point);
    });
}
