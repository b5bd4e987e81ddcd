#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "config/ISession.h"
#include "net/CPCMsg.h"
#include "net/CUDSMsg.h"
#include "platform/Log.h"
#include "process/update/CByteSource.h"
#include "process/update/CImageGate.h"
#include "process/update/CPackageReader.h"
#include "process/update/ServiceContext.h"
#include "process/update/UpdateFile.h"

/// The requests that start, feed and cancel an update. Made for one message by the thread that received it. Operations
/// return 0, or -1 when the request is refused or failed. While a PC's session is current, requests of other sessions
/// are refused.
class CUpdateCommand {
public:
    using SessionPtr = std::shared_ptr<RMUP::Net::ISession>;

    explicit CUpdateCommand(const RMUP::Process::ServiceContext& service);

    /// ZELApp: starts the update worker, unless there is one. An update that cannot start is told as one that failed.
    int ProcessUpdateStart(const CUDSMsg& message);

    /// ZELApp: whether the update that the PC asked for is possible.
    int ProcessUpdateRequestRes(const CUDSMsg& message);

    /// The PC: which images it offers, in which versions.
    int ProcessUpdateInfoRes(const CPCMsg& message, const SessionPtr& session);

    /// The PC: the next piece of an image, into the image's temporary file. An image that fails is answered with an
    /// error notice at once, and what still comes of it is dropped.
    int ProcessReceiveUpdateImage(const CPCMsg& message, const SessionPtr& session);

    /// The PC gives the update up.
    int ProcessUpdateCancel(const CPCMsg& message, const SessionPtr& session);

    /// Takes the received SYS package apart into the temporary files of its four images. A section of an unknown image
    /// is passed over, but then one of the four is missing: -1.
    int SplitSYSUpdateFile();

private:
    using Transfer = RMUP::Process::CImageTransfer;

    /// What the PC is to hear once the handler has let go of the images.
    enum class Answer { kReceived, kImpossible, kUnknownSection };

    void TakeOffers(std::span<const std::uint8_t> payload);

    /// What ZELApp is to hear of the offers. Empty when there is no memory for it.
    [[nodiscard]] std::vector<std::uint8_t> JudgeOffers(const SessionPtr& session);

    /// One packet of an image. False when the image is refused.
    [[nodiscard]] bool TakePacket(RMUP::Process::CImageGate::Visit& visit, std::span<const std::uint8_t> payload,
                                  bool last, const SessionPtr& session);

    /// Reads the header in the first packet and opens the image's temporary file. Null when the image is refused.
    [[nodiscard]] std::unique_ptr<Transfer> BeginImage(std::span<const std::uint8_t> payload,
                                                       const SessionPtr& session);

    /// After an image that nobody knows: what was announced before it counts no more.
    void ForgetImages();

    /// Appends a piece. False when it cannot be stored, or is more than was announced.
    [[nodiscard]] bool StorePiece(Transfer& transfer, std::span<const std::uint8_t> data);

    /// After the last piece: closes the file, and counts the image as received once it is whole.
    void CompleteImage(Transfer& transfer);
    void SendAnswers(const SessionPtr& session);

    /// Splits the package if the image is one. False when that failed.
    [[nodiscard]] bool SplitIfPackage(const ImageInfo& image);

    void LogIncomplete(std::int64_t size, std::int64_t received);
    void LogClosed(const ImageInfo& image);

    [[nodiscard]] bool CopySection(RMUP::Process::CByteSource& package, RMUP::Process::CPackageReader& reader);
    [[nodiscard]] bool CopySectionData(RMUP::Process::CByteSource& package, ImageInfo& image);

    QENFx::Log::FileLog* log_;
    const RMUP::Process::ServiceContext& service_;
    std::vector<Answer> answers_;
};
