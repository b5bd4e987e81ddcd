#include <fcntl.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <climits>
#include <string>
#include <thread>

#include "files/Files.h"
#include "platform/upgrade.h"
#include "upgrade/Device.h"

namespace Host {

namespace {

constexpr int kSwitched = 100;

std::chrono::milliseconds WriteDelay(const std::vector<std::string>& faults) {
    const std::string text = ValueIn(faults, "upImgWrite.delay_ms").value_or("0");
    unsigned delay = 0;
    std::from_chars(text.data(), text.data() + text.size(), delay);
    return std::chrono::milliseconds(delay);
}

int WriteBlock(const Device& device, int id, std::string_view block, unsigned offset) {
    const std::string image = std::to_string(id);
    if (const auto faults = device.Lines("faults.cfg"); !faults.empty()) {
        std::this_thread::sleep_for(WriteDelay(faults));
        const std::string fault = "upImgWrite." + image + "=fail@" + std::to_string(offset);
        if (std::find(faults.begin(), faults.end(), fault) != faults.end()) {
            return -1;
        }
    }
    const std::string path = device.Path("images/" + image + ".img");
    // An image is written from its beginning; what a longer one left there before is not part of it.
    const int fresh = offset == 0 ? O_TRUNC : 0;
    const FileDescriptor file(device.OpenToWrite(path, fresh));
    if (!file) {
        return -1;
    }
    WriteFully(file.get(), block, offset, path);
    return static_cast<int>(block.size());
}

int ActiveIndex(const Device& device) {
    return device.HasLine("active", "1") ? 1 : 0;
}

}  // namespace

}  // namespace Host

int upImgWrite(int id, const void* data, unsigned int offset, unsigned int length) {
    return Host::Guarded(-1, [=] {
        const Host::Device device({"upImgWrite", std::to_string(id), std::to_string(offset), std::to_string(length)});
        const bool isImage = id >= 0 && id < static_cast<int>(std::size(Host::kImageNames));
        if (!isImage || data == nullptr || length > INT_MAX) {
            return -1;
        }
        return Host::WriteBlock(device, id, {static_cast<const char*>(data), length}, offset);
    });
}

int getActiveIndex() {
    return Host::Guarded(0, [] { return Host::ActiveIndex(Host::Device({"getActiveIndex"})); });
}

int changeUpActiveIndex() {
    return Host::Guarded(-1, [] {
        const Host::Device device({"changeUpActiveIndex"});
        if (device.HasLine("faults.cfg", "changeUpActiveIndex=fail")) {
            return -1;
        }
        device.Replace("next", Host::ActiveIndex(device) == 0 ? "1" : "0");
        return Host::kSwitched;
    });
}
