#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "common/CInstance.h"
#include "common/CMutex.h"
#include "config/ISession.h"
#include "config/ImageInfo.h"
#include "platform/Log.h"
#include "platform/Text.h"

namespace RMUP::Net {
class CConnectionMonitor;
}

/// The remote-management status that the PC and the log see.
enum class DeviceStatus : std::int32_t {
    kDisconnect = 0,
    kRegistrationNow = 1,
    kRegistered = 2,
    kTransferResult = 3,
    kAnalyzing = 4,
    kUpdating = 5,
};

/// The model type of the Human model; every other model type is Veterinary.
inline constexpr char kHumanModel[] = "Human";
inline constexpr char kVeterinaryModel[] = "Veterinary";

/// What the daemon knows about its own analyzer. Made during start-up; from then on any thread may call anything but
/// Initialize.
class CDeviceInfo {
public:
    using Version = QENFx::Common::Version;

    static CDeviceInfo* GetInstance();
    /// Not used by the service itself: this object lasts as long as the process.
    static void DestroyInstance();

    CDeviceInfo();
    CDeviceInfo(const CDeviceInfo&) = delete;
    CDeviceInfo& operator=(const CDeviceInfo&) = delete;

    /// Reads the identity and the installed versions from the device library, fills the image records and sets the
    /// status to Disconnect. Called once, before any worker runs.
    void Initialize();

    /// Reads the installed versions and the version texts again, and changes nothing else.
    void RefreshVersions();

    void SetStatus(DeviceStatus status);
    DeviceStatus GetStatus() const { return status_; }
    char GetStatusChar() const;

    /// Asked of the device library each time.
    std::string GetModelType() const;

    const std::string& GetSerialNumber() const { return serialNumber_; }
    const std::string& GetProject() const { return project_; }

    /// The version texts as the device library gives them. The one of DSP is empty: the library does not tell it.
    std::string GetSYSVersion() const { return VersionText(ImageId::kSYS); }
    std::string GetAppVersion() const { return VersionText(ImageId::kApp); }
    std::string GetDSPVersion() const { return VersionText(ImageId::kDSP); }
    std::string GetXMLVersion() const { return VersionText(ImageId::kXML); }

    ImageInfos& GetImageInfo() { return images_; }

    /// Sets the flags and counters of all records, and the update flag, to 0; texts and versions stay.
    void ClearImageInfo();

    /// Prints the flags and counters of all records on standard output. Not used by the service itself.
    void DumpImageInfo() const;

    /// Set when the update at hand is to be given up.
    void SetUpdateFlag(bool flag) { updateFlag_ = flag; }
    bool GetUpdateFlag() const { return updateFlag_; }

    /// The session of the registered PC, or null. Hold the result only for one use.
    std::shared_ptr<RMUP::Net::ISession> GetSession() const;

private:
    // It alone says which session is current, in one step with whether the link to the PC is up.
    friend class RMUP::Net::CConnectionMonitor;
    void SetSession(std::shared_ptr<RMUP::Net::ISession> session);

    std::string VersionText(ImageId image) const;

    static CInstance<CDeviceInfo> instance_;

    QENFx::Log::FileLog* log_;
    mutable CMutex statusMutex_;
    mutable CMutex dataMutex_;

    std::atomic<DeviceStatus> status_{DeviceStatus::kDisconnect};
    std::atomic<bool> updateFlag_{false};

    std::string serialNumber_;
    std::string project_;
    std::string modelType_;

    // Behind dataMutex_.
    std::shared_ptr<RMUP::Net::ISession> session_;
    Wire::CImageTable<std::string> versionTexts_;

    ImageInfos images_;
};
