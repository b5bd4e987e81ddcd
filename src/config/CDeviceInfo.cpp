#include "config/CDeviceInfo.h"

#include <cstdio>
#include <cstring>
#include <mutex>

#include "common/Constants.h"
#include "common/Shell.h"
#include "platform/upgrade.h"

using QENFx::Common::Version;

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
    /// Places in the library's answer. The one between QTE and XML is not for this program.
    enum Position : std::size_t { kApp = 0, kSYS = 1, kBoot = 2, kKernel = 3, kRootFS = 4, kQTE = 5, kXML = 7 };

    LibraryVersions() { nv_get_img_version_all(texts_); }

    std::string operator[](Position position) const {
        const char* text = &texts_[position * kTextSize];
        return std::string(text, strnlen(text, kTextSize));
    }

private:
    static constexpr std::size_t kTextSize = 16;
    char texts_[kImageCount * kTextSize] = {};
};

}  // namespace

CInstance<CDeviceInfo> CDeviceInfo::instance_;

CDeviceInfo* CDeviceInfo::GetInstance() {
    return instance_.Get([] { return std::make_unique<CDeviceInfo>(); });
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
    log_->WriteInfo("%s[%c] SYS Version: %s", kTag, GetStatusChar(), sysVersion_.c_str());
    log_->WriteInfo("%s[%c] APP Version: %s", kTag, GetStatusChar(), appVersion_.c_str());
    log_->WriteInfo("%s[%c] XML Version: %s", kTag, GetStatusChar(), xmlVersion_.c_str());

    ClearImageInfo();
    FillFromCatalogue(images_, modelType_ == kHumanModel);

    const auto installed = [this](ImageId image) { return std::string(GetCurrentVersion(image).getVersion()); };
    log_->WriteInfo("%s[%c] BOOT Version:   %s", kTag, GetStatusChar(), installed(kBootImage).c_str());
    log_->WriteInfo("%s[%c] KERNEL Version: %s", kTag, GetStatusChar(), installed(kKernelImage).c_str());
    log_->WriteInfo("%s[%c] ROOTFS Version: %s", kTag, GetStatusChar(), installed(kRootFSImage).c_str());
    log_->WriteInfo("%s[%c] APP Version:    %s", kTag, GetStatusChar(), installed(kAppImage).c_str());
    log_->WriteInfo("%s[%c] QTE Version:    %s", kTag, GetStatusChar(), installed(kQTEImage).c_str());
    log_->WriteInfo("%s[%c] DSP Version:    %s", kTag, GetStatusChar(), installed(kDSPImage).c_str());
    log_->WriteInfo("%s[%c] XML Version:    %s", kTag, GetStatusChar(), installed(kXMLImage).c_str());
    log_->WriteInfo("%s[%c] SYS Version:    %s", kTag, GetStatusChar(), installed(kSYSImage).c_str());

    RunShell("mkdir -p /data/update");
}

void CDeviceInfo::RefreshVersions() {
    const LibraryVersions library;
    const std::lock_guard lock(dataMutex_);
    sysVersion_ = library[LibraryVersions::kSYS];
    appVersion_ = library[LibraryVersions::kApp];
    xmlVersion_ = library[LibraryVersions::kXML];
    images_[kBootImage].CurrentVersion = library[LibraryVersions::kBoot].c_str();
    images_[kKernelImage].CurrentVersion = library[LibraryVersions::kKernel].c_str();
    images_[kRootFSImage].CurrentVersion = library[LibraryVersions::kRootFS].c_str();
    images_[kAppImage].CurrentVersion = appVersion_.c_str();
    images_[kQTEImage].CurrentVersion = library[LibraryVersions::kQTE].c_str();
    images_[kDSPImage].CurrentVersion = dspVersion_.c_str();
    images_[kXMLImage].CurrentVersion = xmlVersion_.c_str();
    images_[kSYSImage].CurrentVersion = sysVersion_.c_str();
}

void CDeviceInfo::SetStatus(DeviceStatus status) {
    static constexpr char kTag[] = "[CDeviceInfo::SetStatus]";
    {
        const std::lock_guard lock(statusMutex_);
        status_ = status;
    }
    log_->WriteInfo("%s Status changed to \"%s\"", kTag, StatusText(status_));
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

std::string CDeviceInfo::GetSYSVersion() const {
    const std::lock_guard lock(dataMutex_);
    return sysVersion_;
}

std::string CDeviceInfo::GetAppVersion() const {
    const std::lock_guard lock(dataMutex_);
    return appVersion_;
}

std::string CDeviceInfo::GetDSPVersion() const {
    const std::lock_guard lock(dataMutex_);
    return dspVersion_;
}

std::string CDeviceInfo::GetXMLVersion() const {
    const std::lock_guard lock(dataMutex_);
    return xmlVersion_;
}

Version CDeviceInfo::GetCurrentVersion(int image) const {
    const std::lock_guard lock(dataMutex_);
    return images_[static_cast<std::size_t>(image)].CurrentVersion;
}

void CDeviceInfo::SetCurrentVersion(int image, const Version& version) {
    const std::lock_guard lock(dataMutex_);
    images_[static_cast<std::size_t>(image)].CurrentVersion = version;
}

Version CDeviceInfo::GetNewVersion(int image) const {
    const std::lock_guard lock(dataMutex_);
    return images_[static_cast<std::size_t>(image)].NewVersion;
}

void CDeviceInfo::SetNewVersion(int image, const Version& version) {
    const std::lock_guard lock(dataMutex_);
    images_[static_cast<std::size_t>(image)].NewVersion = version;
}

HeaderTail CDeviceInfo::GetHeaderTail(int image) const {
    const std::lock_guard lock(dataMutex_);
    return images_[static_cast<std::size_t>(image)].Tail;
}

void CDeviceInfo::SetHeaderTail(int image, const HeaderTail& tail) {
    const std::lock_guard lock(dataMutex_);
    images_[static_cast<std::size_t>(image)].Tail = tail;
}

void CDeviceInfo::ClearImageInfo() {
    for (ImageInfo& image : images_) {
        image.Clear();
    }
    updateFlag_ = false;
}

void CDeviceInfo::DumpImageInfo() const {
    for (int i = 0; i < kImageCount; ++i) {
        const ImageInfo& image = images_[static_cast<std::size_t>(i)];
        printf("[%dth] IsFile: %d\n", i, image.IsFile.load());
        printf("[%dth] NeedUpdate: %d\n", i, image.NeedUpdate.load());
        printf("[%dth] FileSize: %d\n", i, image.FileSize.load());
        printf("[%dth] Download: %d\n", i, image.Download.load());
        printf("[%dth] Progress: %d\n", i, image.Progress.load());
    }
}

std::shared_ptr<IPCSession> CDeviceInfo::GetSession() const {
    const std::lock_guard lock(dataMutex_);
    return session_;
}

void CDeviceInfo::SetSession(std::shared_ptr<IPCSession> session) {
    // Swapped, so that a session that nobody else holds is torn down after the lock is gone.
    const std::lock_guard lock(dataMutex_);
    session_.swap(session);
}
