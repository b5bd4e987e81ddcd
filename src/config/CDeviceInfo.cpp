#include "config/CDeviceInfo.h"

#include <cstdio>
#include <cstring>
#include <mutex>

#include "common/CTaggedLog.h"
#include "common/Constants.h"
#include "common/Shell.h"
#include "platform/upgrade.h"

namespace {

constexpr char kCreateTag[] = "[CDeviceInfo::CDeviceInfo]";
constexpr char kDestroyTag[] = "[CDeviceInfo::~CDeviceInfo]";

const char* StatusText(DeviceStatus status) {
    switch (status) {
        case DeviceStatus::kDisconnect:
            return "Disconnect";
        case DeviceStatus::kRegistrationNow:
            return "Registration now";
        case DeviceStatus::kRegistered:
            return "Registered";
        case DeviceStatus::kTransferResult:
            return "Transfer Result";
        case DeviceStatus::kAnalyzing:
            return "Analyzing";
        case DeviceStatus::kUpdating:
            return "Updating";
    }
    return "Unknown";
}

std::string ValueOf(const char* name, const char* otherwise) {
    const char* value = nv_get_value(name);
    return value == nullptr ? otherwise : value;
}

/// The version texts of all images as the device library keeps them.
class LibraryVersions {
public:
    LibraryVersions() { nv_get_img_version_all(texts_); }

    /// Empty for an image whose version the library does not tell.
    std::string Of(const Wire::ImageRow& row) const {
        if (row.versionPlace < 0) {
            return "";
        }
        const char* text = &texts_[static_cast<std::size_t>(row.versionPlace) * Wire::kVersionSize];
        return std::string(text, strnlen(text, Wire::kVersionSize));
    }

private:
    static constexpr std::size_t kTexts = 8;
    char texts_[kTexts * Wire::kVersionSize] = {};
};

}  // namespace

CInstance<CDeviceInfo> CDeviceInfo::instance_;

CDeviceInfo* CDeviceInfo::GetInstance() {
    return instance_.Get();
}

void CDeviceInfo::DestroyInstance() {
    instance_.Destroy();
}

CDeviceInfo::CDeviceInfo()
    : log_(QENFx::Log::Logger::getLogger()->getLog(kLogName)),
      statusMutex_(log_, kCreateTag, kDestroyTag),
      dataMutex_(log_, kCreateTag, kDestroyTag) {}

void CDeviceInfo::Initialize() {
    static constexpr char kTag[] = "[CDeviceInfo::Initialize]";
    SetStatus(DeviceStatus::kDisconnect);

    serialNumber_ = ValueOf("sn", "");
    log_->WriteInfo("%s[%c] Serial Number: %s", kTag, GetStatusChar(), serialNumber_.c_str());
    project_ = ValueOf("project", "");
    log_->WriteInfo("%s[%c] Project: %s", kTag, GetStatusChar(), project_.c_str());
    modelType_ = ValueOf("model_type", kHumanModel);
    log_->WriteInfo("%s[%c] Model Type: %s", kTag, GetStatusChar(), modelType_.c_str());

    RefreshVersions();
    for (const ImageId image : {ImageId::kSYS, ImageId::kApp, ImageId::kXML}) {
        log_->WriteInfo("%s[%c] %s Version: %s", kTag, GetStatusChar(), Wire::RowOf(image).name,
                        VersionText(image).c_str());
    }

    ClearImageInfo();
    FillFromCatalogue(images_, modelType_ == kHumanModel ? Wire::Model::kHuman : Wire::Model::kVeterinary);

    for (const ImageInfo& image : images_) {
        const std::string name = std::string(image.Row.name) + " Version:";
        log_->WriteInfo("%s[%c] %-16s%s", kTag, GetStatusChar(), name.c_str(), image.GetCurrentVersion().getVersion());
    }

    RunShell("mkdir -p /data/update");
}

void CDeviceInfo::RefreshVersions() {
    const LibraryVersions library;
    const std::lock_guard lock(dataMutex_);
    for (ImageInfo& image : images_) {
        std::string& text = versionTexts_[image.Row.id];
        text = library.Of(image.Row);
        image.SetCurrentVersion(ImageInfo::Version(text.c_str()));
    }
}

void CDeviceInfo::SetStatus(DeviceStatus status) {
    const CTaggedLog log(log_, "[CDeviceInfo::SetStatus]");
    {
        const std::lock_guard lock(statusMutex_);
        status_ = status;
    }
    log.WriteInfo("Status changed to \"%s\"", StatusText(status_));
}

char CDeviceInfo::GetStatusChar() const {
    switch (status_) {
        case DeviceStatus::kDisconnect:
            return 'D';
        case DeviceStatus::kRegistered:
            return 'R';
        case DeviceStatus::kTransferResult:
            return 'T';
        case DeviceStatus::kAnalyzing:
            return 'A';
        case DeviceStatus::kUpdating:
            return 'U';
        case DeviceStatus::kRegistrationNow:  // shares the letter of an unknown status: it never lasts
            break;
    }
    return 'X';
}

std::string CDeviceInfo::GetModelType() const {
    return ValueOf("model_type", kHumanModel);
}

std::string CDeviceInfo::VersionText(ImageId image) const {
    const std::lock_guard lock(dataMutex_);
    return versionTexts_[image];
}

void CDeviceInfo::ClearImageInfo() {
    for (ImageInfo& image : images_) {
        image.Clear();
    }
    updateFlag_ = false;
}

void CDeviceInfo::DumpImageInfo() const {
    for (const ImageInfo& image : images_) {
        printf("[%dth] IsFile: %d\n", image.Number(), image.IsFile.load());
        printf("[%dth] NeedUpdate: %d\n", image.Number(), image.NeedUpdate.load());
        printf("[%dth] FileSize: %d\n", image.Number(), image.FileSize.load());
        printf("[%dth] Download: %d\n", image.Number(), image.Download.load());
        printf("[%dth] Progress: %d\n", image.Number(), image.Progress.load());
    }
}

std::shared_ptr<RMUP::Net::ISession> CDeviceInfo::GetSession() const {
    const std::lock_guard lock(dataMutex_);
    return session_;
}

void CDeviceInfo::SetSession(std::shared_ptr<RMUP::Net::ISession> session) {
    // Swapped, so that a session that nobody else holds is torn down after the lock is gone.
    const std::lock_guard lock(dataMutex_);
    session_.swap(session);
}
