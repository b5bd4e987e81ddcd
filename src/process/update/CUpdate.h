#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "common/CTaggedLog.h"
#include "config/CDeviceInfo.h"
#include "config/ISession.h"
#include "platform/Log.h"
#include "platform/Service.h"
#include "process/update/CFileSource.h"
#include "process/update/CHttpConnection.h"
#include "process/update/COutputFile.h"
#include "process/update/CPackageReader.h"
#include "process/update/CUpdateSlot.h"
#include "process/update/HttpResponse.h"
#include "process/update/ServiceContext.h"
#include "process/update/UpdateFile.h"
#include "process/update/UpdateInfoXml.h"
#include "process/update/UpdateMessages.h"

namespace RMUP::Process {

/// The update worker: one object and one thread per update. It fetches the images from a USB stick, from the PC or from
/// the update server, writes them to the partition that is not running, switches the boot partition, records history
/// and versions, and keeps ZELApp and the PC informed. Nothing that the device runs from is touched before the switch,
/// and neither history nor versions unless it succeeded.
///
/// While the object lives the device's status is Updating; then it is again what it was before. From construction on it
/// belongs to the framework's remover of finished threads, unless Start fails: then to its creator.
///
/// Operations return 0 or true, or -1 or false after an error line, unless said otherwise.
class CUpdate : public QENFx::Service::Thread {
public:
    /// What it works with outlives it. The payload of ZELApp's start request: request mode and method; what is missing
    /// reads as 0.
    CUpdate(const ServiceContext& service, std::span<const std::uint8_t> request, CUpdateSlot::Hold slot);
    ~CUpdate() override;

    int Run() override;

    /// Tells ZELApp that what it requested could not even begin: as when nothing can be had from the update's source.
    /// Says nothing for a method that there is not.
    static void SendNotStarted(const ServiceContext& service, std::span<const std::uint8_t> request);

private:
    using Version = QENFx::Common::Version;

    /// How a method's fetching ended: with images to write, or with nothing left to do.
    enum class Fetched { kImages, kNothing };

    /// A source of updates.
    struct Method {
        std::uint8_t number;         ///< by which ZELApp requests it
        const char* line;            ///< for the log
        const char* historyName;     ///< in the update history
        UpdateError nothingToBeHad;  ///< as which it fails that its source has nothing
        Fetched (CUpdate::*fetch)();
    };

    /// Null when there is none that the request names.
    static const Method* FindMethod(std::span<const std::uint8_t> request);

    // Run
    [[nodiscard]] Fetched UpdateByUSB();
    [[nodiscard]] Fetched FetchFromUSB();
    [[nodiscard]] Fetched UpdateByPC();
    [[nodiscard]] Fetched UpdateByInternet();
    [[nodiscard]] Fetched UpdateFromPC();
    [[nodiscard]] Fetched UpdateQCMaterial();
    [[nodiscard]] int WriteUpdate();
    void RecordHistory();

    // Reports
    [[nodiscard]] int SendUDSUpdateInfo();
    int SendUDSUpdateStatus();
    int SendUDSUpdateComplete();
    int SendUDSUpdateError(int kind, std::uint32_t code = 0, std::uint8_t group = 0);
    int SendUDSUpdateError(const UpdateError& error) {
        return SendUDSUpdateError(kUpdateFailed, error.code, error.group);
    }
    int SendPCGetUpdateInfo();
    int SendPCUpdateReqResponse();

    /// Sends to the session that is asked for the images. A PC that cannot be sent to is lost.
    void AskPC(PCCommand command, std::span<const std::uint8_t> payload);

    // Files
    void DeleteRemainingFiles();
    [[nodiscard]] int GetFileHeaderInfoFromUSB(ImageInfo& image, CFileSource& file);

    /// Takes over a header of which this field, and what follows it, is missing.
    [[nodiscard]] bool TakeHeaderFromUSB(ImageInfo& image, const UpdateHeader& header, HeaderField missing);
    [[nodiscard]] int GetPackageVersion(const ImageInfo& app, CFileSource& file);
    [[nodiscard]] int CheckPackageVersion();

    /// Marks the present images that are to be written. Marks are never taken back. Returns a count, 0 when nothing is
    /// to be updated.
    int CompareVersion(Comparison comparison);

    // USB
    int MountUSB(bool mount, const char* mountPoint);

    /// Returns the number of update files; 0 also when some of those that belong together are missing; -1 when the
    /// files are not those of one release.
    [[nodiscard]] int GetFileInfo();

    /// Whether the file of one image is there and good; uses up the retries.
    [[nodiscard]] bool ReadFileInfo(ImageInfo& image, int& retries);

    [[nodiscard]] int CopyContentsFromUSB();
    [[nodiscard]] bool CopyImageFromUSB(ImageInfo& image);
    [[nodiscard]] bool CopyPackageFromUSB(const ImageInfo& package);
    [[nodiscard]] bool CopySectionFromUSB(CFileSource& source, CPackageReader& reader);

    /// Goes to the data of the image's file on the stick.
    [[nodiscard]] bool OpenData(const ImageInfo& image, CFileSource& source);
    [[nodiscard]] bool CopyToFile(CFileSource& source, ImageInfo& image);
    [[nodiscard]] int CopyFile(CFileSource& source, COutputFile& destination, ImageInfo& image);

    // PC
    /// Return 0 when the images have been received; -1 after everybody who needs to know has been told.
    [[nodiscard]] int DownloadByPCMonitor();
    [[nodiscard]] int DownloadFromPCMonitor();

    /// False after everybody who needs to know has been told.
    [[nodiscard]] bool WaitForOffers();
    [[nodiscard]] bool RequestImage(const ImageInfo& image);

    /// Whether the session that was asked for the images is not, or no more, the current one, the PC counts as gone, or
    /// it has given the update up.
    [[nodiscard]] bool IsPCLost() const;
    void GiveUpPC();

    // Update server
    using Connection = std::unique_ptr<CHttpConnection>;

    /// Null when there is no connection.
    [[nodiscard]] Connection ConnectUpdateServer();
    [[nodiscard]] bool SendRequest(CHttpConnection& connection, const std::string& request, const CTaggedLog& log);
    [[nodiscard]] int DownloadUpdateInfoXML(CHttpConnection& connection, std::string& text);

    /// Fills the catalogue with what the server offers. Returns the number of update files, or -1.
    [[nodiscard]] int GetUpdateInfoFromNet();

    /// Whether there is something to be taken from the document; logs what it says.
    [[nodiscard]] bool IsUsable(const UpdateInfo& info);

    [[nodiscard]] int DownloadContentsFromNet();
    [[nodiscard]] bool DownloadImageFromNet(ImageInfo& image);
    [[nodiscard]] bool DownloadPackageFromNet(CHttpConnection& connection, const ImageInfo& package);
    [[nodiscard]] bool RemoveReceivingHeader(CHttpConnection& connection);

    /// Whether a header of which this field is missing can be used.
    [[nodiscard]] bool IsWholeHeader(const ImageInfo& image, const UpdateHeader& header, HeaderField missing);

    /// Copies the image's data into its temporary file.
    [[nodiscard]] bool DownloadToFile(CHttpConnection& connection, ImageInfo& image);
    [[nodiscard]] int DownloadFile(CHttpConnection& connection, COutputFile& file, ImageInfo& image);
    [[nodiscard]] int DownloadQCMaterialXML(CHttpConnection& connection, const char* targetPath);

    /// Asks for a document and reads it.
    [[nodiscard]] bool DownloadDocument(CHttpConnection& connection, const char* path, std::string& body,
                                        const CTaggedLog& log);

    /// Reads the header of a response that carries a document, and where that ends.
    [[nodiscard]] bool ReadDocumentHeader(CHttpConnection& connection, HttpEnd& end, const CTaggedLog& log);

    // Writing
    [[nodiscard]] int WriteImage();

    /// Takes the marks from what is not to be written although a version is newer.
    void SkipWhatIsNotWritten();
    void SkipSameBootLoader();

    [[nodiscard]] bool CheckArchive(const ImageInfo& image);
    [[nodiscard]] bool Install(ImageInfo& image);
    [[nodiscard]] bool WriteBlocks(ImageInfo& image);
    void Unpack(ImageInfo& image);
    void InstallLogo();
    [[nodiscard]] int ChangeBootPartition();
    int SetNewVersion();

    static constexpr char kRunTag[] = "[CUpdate::Run]";

    const ServiceContext& service_;
    CUpdateSlot::Hold slot_;
    QENFx::Log::FileLog* log_;
    CDeviceInfo& device_;
    ImageInfos& images_;
    const std::uint8_t requestMode_;
    const Method* const method_;
    const DeviceStatus savedStatus_;
    PackageVersions package_;
    std::chrono::steady_clock::time_point start_;
    std::shared_ptr<Net::ISession> pc_;  ///< the session that is asked for the images
};

}  // namespace RMUP::Process
