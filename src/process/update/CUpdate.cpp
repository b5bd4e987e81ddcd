#include "process/update/CUpdate.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <iterator>

#include "common/CTaggedLog.h"
#include "common/Constants.h"
#include "db/CRmDao.h"
#include "process/update/CUpdateAccess.h"
#include "wire/PCCommand.h"

namespace RMUP::Process {

namespace {

/// The request mode that asks only what would be updated.
constexpr std::uint8_t kOnlyAsk = 1;

constexpr char kQCMaterialFile[] = "/tmp/control_material_rm.xml";

}  // namespace

CUpdate::CUpdate(const ServiceContext& service, std::span<const std::uint8_t> request, CUpdateSlot::Hold slot)
    : service_(service),
      slot_(std::move(slot)),
      log_(QENFx::Log::Logger::getLogger()->getLog(kLogName)),
      device_(service.device),
      images_(device_.GetImageInfo()),
      requestMode_(request.size() > 0 ? request[0] : std::uint8_t{0}),
      method_(FindMethod(request)),
      savedStatus_(device_.GetStatus()) {
    device_.SetStatus(DeviceStatus::kUpdating);
    QENFx::Service::ThreadMemoryRemover::GetInstance()->addThread(this);
}

const CUpdate::Method* CUpdate::FindMethod(std::span<const std::uint8_t> request) {
    static constexpr Method kMethods[] = {
        {1, "Update by USB", "USB", kErrorUSBFiles, &CUpdate::UpdateByUSB},
        {2, "Update by PC", "by PC", kErrorPC, &CUpdate::UpdateByPC},
        {3, "Update by internet", "INTERNET", kErrorServer, &CUpdate::UpdateByInternet},
        {4, "Update from PC", "From PC", kErrorPC, &CUpdate::UpdateFromPC},
        {6, "Update QC Material by internet", "", kErrorServer, &CUpdate::UpdateQCMaterial},
    };
    const auto* const method =
        std::ranges::find(kMethods, request.size() > 1 ? request[1] : std::uint8_t{0}, &Method::number);
    return method == std::end(kMethods) ? nullptr : method;
}

void CUpdate::SendNotStarted(const ServiceContext& service, std::span<const std::uint8_t> request) {
    if (const Method* const method = FindMethod(request); method != nullptr) {
        SendUpdateStatus(service, MakeUpdateError(method->nothingToBeHad));
    }
}

CUpdate::~CUpdate() {
    service_.updates.Slot().BeginEnd();
    // What the PC still sends of an image begun for this update belongs to no update any more.
    service_.updates.Gate().Shut();
    service_.updates.Gate().Open();
    device_.SetStatus(savedStatus_);
}

int CUpdate::Run() {
    const CTaggedLog log(log_, kRunTag);
    log.WriteInfo("Update Start");
    service_.updates.Gate().Shut();
    device_.RefreshVersions();
    DeleteRemainingFiles();
    start_ = std::chrono::steady_clock::now();

    if (method_ == nullptr) {
        return -1;
    }
    log.WriteInfo("%s", method_->line);
    if ((this->*method_->fetch)() == Fetched::kNothing) {
        return 0;
    }
    service_.updates.Gate().Shut();
    return WriteUpdate();
}

CUpdate::Fetched CUpdate::UpdateByUSB() {
    const CTaggedLog log(log_, kRunTag);
    device_.ClearImageInfo();
    if (MountUSB(true, kUSBMountPoint) != 0) {
        log.WriteError("Update process end as USB mount fail");
        SendUDSUpdateError(kErrorMount);
        return Fetched::kNothing;
    }
    const Fetched fetched = FetchFromUSB();
    MountUSB(false, kUSBMountPoint);
    return fetched;
}

CUpdate::Fetched CUpdate::FetchFromUSB() {
    const CTaggedLog log(log_, kRunTag);
    const int files = GetFileInfo();
    if (files == 0) {
        log.WriteError("Update file does not exist.");
        SendUDSUpdateError(kErrorUSBFiles);
        return Fetched::kNothing;
    }
    if (files < 0) {
        SendUDSUpdateError(kErrorPackageVersion);
        return Fetched::kNothing;
    }

    const bool onlyAsked = requestMode_ == kOnlyAsk;
    if (CompareVersion(onlyAsked ? Comparison::kStrict : Comparison::kInclusive) == 0) {
        log.WriteInfo("No need to update");
        SendUDSUpdateError(kNothingToUpdate);
        return Fetched::kNothing;
    }
    if (onlyAsked) {
        service_.updates.Slot().BeginEnd();
    }
    const int reported = SendUDSUpdateInfo();
    if (onlyAsked || reported != 0) {
        return Fetched::kNothing;
    }
    if (CopyContentsFromUSB() != 0) {
        log.WriteError("Copy update file error");
        SendUDSUpdateError(kErrorUSBFiles);
        return Fetched::kNothing;
    }
    return Fetched::kImages;
}

CUpdate::Fetched CUpdate::UpdateByPC() {
    device_.ClearImageInfo();
    service_.updates.Gate().Open();
    // Before the question goes out: the answer clears the flag, and it may be quick.
    pc_ = device_.GetSession();
    if (pc_ != nullptr) {
        pc_->SetUpdateFlag(true);
    }
    SendPCGetUpdateInfo();
    return DownloadByPCMonitor() == 0 ? Fetched::kImages : Fetched::kNothing;
}

CUpdate::Fetched CUpdate::UpdateByInternet() {
    const CTaggedLog log(log_, kRunTag);
    device_.ClearImageInfo();
    if (GetUpdateInfoFromNet() <= 0) {
        log.WriteError("Update file does not exist.");
        SendUDSUpdateError(kErrorServer);
        return Fetched::kNothing;
    }
    if (CompareVersion(Comparison::kStrict) == 0) {
        log.WriteInfo("No need to update");
        SendUDSUpdateError(kNothingToUpdate);
        return Fetched::kNothing;
    }
    if (SendUDSUpdateInfo() != 0 || DownloadContentsFromNet() != 0) {
        log.WriteError("Download update file error");
        SendUDSUpdateError(kErrorServer);
        return Fetched::kNothing;
    }
    return Fetched::kImages;
}

CUpdate::Fetched CUpdate::UpdateFromPC() {
    const CTaggedLog log(log_, kRunTag);
    // The marks stay as the PC's announcement has set them. What it pushed before the device was ready went with the
    // remaining files, so nothing counts as received.
    for (ImageInfo& image : images_) {
        image.InPackage = false;
        image.FileSize = 0;
        image.Download = 0;
        image.Written = 0;
        image.Progress = 0;
    }
    service_.updates.Gate().Open();
    pc_ = device_.GetSession();
    SendPCUpdateReqResponse();
    if (DownloadFromPCMonitor() != 0) {
        log.WriteError("Download update file from PC error");
        return Fetched::kNothing;
    }
    return Fetched::kImages;
}

CUpdate::Fetched CUpdate::UpdateQCMaterial() {
    const CTaggedLog log(log_, kRunTag);
    const Connection connection = ConnectUpdateServer();
    if (connection == nullptr) {
        log.WriteError("Connect to update server failed");
        SendUDSUpdateError(kErrorServer);
        return Fetched::kNothing;
    }
    if (DownloadQCMaterialXML(*connection, kQCMaterialFile) != 0) {
        log.WriteError("Download update file error");
        SendUDSUpdateError(kErrorServer);
        return Fetched::kNothing;
    }
    SendUDSUpdateComplete();
    return Fetched::kNothing;
}

int CUpdate::WriteUpdate() {
    const CTaggedLog log(log_, kRunTag);
    CompareVersion(Comparison::kStrict);
    if (WriteImage() != 0) {
        log.WriteError("Write image error");
        SendUDSUpdateError(kErrorWrite);
        return -1;
    }
    if (CountMarks(images_) == 0) {
        log.WriteInfo("No need to update");
        SendUDSUpdateError(kNothingToUpdate);
        return 0;
    }
    if (ChangeBootPartition() != 0) {
        SendUDSUpdateError(kErrorBootPartition);
        return -1;
    }
    RecordHistory();
    SetNewVersion();
    SendUDSUpdateComplete();
    return 0;
}

void CUpdate::RecordHistory() {
    const std::time_t end = std::time(nullptr);
    tm local{};
    tzset();  // localtime_r may keep the zone that the device had before
    localtime_r(&end, &local);
    char completeTime[128] = "";
    strftime(completeTime, sizeof(completeTime), "%F %T", &local);

    // Not from the clock that tells the date: the operator may set that one meanwhile.
    const auto taken =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start_).count();
    char elapsed[64] = "";
    snprintf(elapsed, sizeof(elapsed), "%dm %ds.%d", static_cast<int>(taken / 60'000),
             static_cast<int>(taken / 1000 % 60), static_cast<int>(taken % 1000));

    CRmDao dao;
    for (const ImageInfo& image : images_) {
        if (image.NeedUpdate) {
            // A row that cannot be added has its line in the log; the images are written all the same.
            (void)dao.SetUpdateHistory(image.DisplayName, completeTime, elapsed, image.GetCurrentVersion().getVersion(),
                                       image.GetNewVersion().getVersion(), method_->historyName);
        }
    }
}

int CUpdate::SendUDSUpdateInfo() {
    const CTaggedLog log(log_, "[CUpdate::SendUDSUpdateInfo]");
    const auto payload = MakeUpdateInfo(images_, Wire::kAllImages);
    if (payload.empty()) {
        log.WriteError("Cannot get memory from 'new' operator");
        return -1;
    }
    log.WriteInfo("Send UDS messsage update will be started");
    SendUpdateStatus(service_, payload);
    return 0;
}

int CUpdate::SendUDSUpdateStatus() {
    if (RaiseProgress(images_)) {
        SendUpdateStatus(service_, MakeUpdateProgress(images_));
    }
    return 0;
}

int CUpdate::SendUDSUpdateComplete() {
    service_.updates.Slot().BeginEnd();
    SendUpdateStatus(service_, std::array<std::uint8_t, 1>{kUpdateFinished});
    return 0;
}

int CUpdate::SendUDSUpdateError(int kind, std::uint32_t code, std::uint8_t group) {
    service_.updates.Slot().BeginEnd();
    if (kind == kNothingToUpdate) {
        SendUpdateStatus(service_, std::array<std::uint8_t, 1>{kNothingToUpdate});
    } else if (kind == kUpdateFailed) {
        SendUpdateStatus(service_, MakeUpdateError({code, group}));
    }
    return 0;
}

int CUpdate::SendPCGetUpdateInfo() {
    // The items are the versions of SYS, APP, DSP and XML and the XML archive's second one.
    AskPC(PCCommand::kGetInfo, std::array<std::uint8_t, 2>{0x03, 0xE0});
    return 0;
}

int CUpdate::SendPCUpdateReqResponse() {
    AskPC(PCCommand::kUpdateAccept, std::array<std::uint8_t, 1>{0x04});
    return 0;
}

void CUpdate::AskPC(PCCommand command, std::span<const std::uint8_t> payload) {
    if (!SendToPC(service_, pc_, command, payload)) {
        pc_.reset();
    }
}

}  // namespace RMUP::Process
