#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "files/Files.h"
#include "platform/upgrade.h"
#include "upgrade/Device.h"

namespace Host {

namespace {

constexpr std::size_t kTextSize = 16;
constexpr const char* kNoVersion = "0.00.00.0000";

/// The order in which all versions are given. The seventh is not used by the callers.
constexpr const char* kReportOrder[] = {"APP", "SYS", "BOOT", "KERNEL", "ROOTFS", "QTE", "DSP", "XML"};

struct IdentityValue {
    std::string_view name;
    bool emptyWhenMissing;
};

constexpr IdentityValue kIdentity[] = {{"sn", true}, {"project", true}, {"model_type", false}};

/// What this thread was given last, a text for each value. Without a destructor, so that it serves threads that still
/// ask while the process exits; longer values are cut.
thread_local std::array<char[256], std::size(kIdentity)> identityTexts{};

void CopyText(std::string_view text, char* target, std::size_t size) {
    std::memset(target, 0, size);
    std::memcpy(target, text.data(), std::min(text.size(), size - 1));
}

std::string VersionOf(const char* image, const std::vector<std::string>& versions) {
    return ValueIn(versions, image).value_or(kNoVersion);
}

void StoreVersion(const Device& device, const char* image, const std::string& version) {
    // Locked from the reading on: two images recorded at once are both kept.
    const DirectoryLock lock(device.Path("."));
    const auto installed = device.Lines("versions.cfg");
    std::string content;
    for (const char* name : kImageNames) {
        content.append(name).append("=");
        content.append(name == image ? version : VersionOf(name, installed)).append("\n");
    }
    ReplaceFile(lock, device.Path("versions.cfg"), content);
}

}  // namespace

}  // namespace Host

const char* nv_get_value(const char* name) {
    return Host::Guarded<const char*>(nullptr, [=]() -> const char* {
        const Host::Device device({"nv_get_value", name == nullptr ? "" : name});
        const auto* value = std::find_if(std::begin(Host::kIdentity), std::end(Host::kIdentity),
                                         [=](const auto& known) { return name != nullptr && known.name == name; });
        if (value == std::end(Host::kIdentity)) {
            return nullptr;
        }
        const auto text = device.Value("nv.cfg", value->name);
        if (!text && !value->emptyWhenMissing) {
            return nullptr;
        }
        char(&stored)[256] = Host::identityTexts[static_cast<std::size_t>(value - std::begin(Host::kIdentity))];
        Host::CopyText(text.value_or(""), stored, sizeof stored);
        return stored;
    });
}

int nv_get_img_version_all(char* eightTexts16) {
    return Host::Guarded(-1, [=] {
        const Host::Device device({"nv_get_img_version_all"});
        if (eightTexts16 == nullptr) {
            return -1;
        }
        const auto installed = device.Lines("versions.cfg");
        char* target = eightTexts16;
        for (const char* image : Host::kReportOrder) {
            Host::CopyText(Host::VersionOf(image, installed), target, Host::kTextSize);
            target += Host::kTextSize;
        }
        return 0;
    });
}

int nv_set_img_version(int id, const char* text16, int reserved) {
    return Host::Guarded(-1, [=] {
        const std::string version = text16 == nullptr ? "" : std::string(text16, strnlen(text16, Host::kTextSize));
        const Host::Device device({"nv_set_img_version", std::to_string(id), version, std::to_string(reserved)});
        const bool isImage = id >= 0 && id < static_cast<int>(std::size(Host::kImageNames));
        const bool fitsALine = std::all_of(version.begin(), version.end(), [](unsigned char c) { return c >= ' '; });
        if (!isImage || version.empty() || !fitsALine ||
            device.HasLine("faults.cfg", "nv_set_img_version." + std::to_string(id) + "=fail")) {
            return -1;
        }
        Host::StoreVersion(device, Host::kImageNames[id], version);
        return 0;
    });
}
