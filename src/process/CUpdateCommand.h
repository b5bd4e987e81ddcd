#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "config/CDeviceInfo.h"
#include "config/IPCSession.h"
#include "net/CPCMsg.h"
#include "net/CUDSMsg.h"
#include "platform/Log.h"
#include "process/update/CByteSource.h"
#include "process/update/CImageReceiver.h"

/// The requests that start, feed and cancel an update. Made for one message by the thread that received it. Operations
/// return 0, or -1 when the request is refused or failed.
class CUpdateCommand {
public:
    using SessionPtr = std::shared_ptr<IPCSession>;

    CUpdateCommand();

    /// ZELApp: starts the update worker, unless there is one.
    int ProcessUpdateStart(CUDSMsg& message);

    /// ZELApp: whether the update that the PC asked for is possible.
    int ProcessUpdateRequestRes(CUDSMsg& message);

    /// The PC: which images it offers, in which versions.
    int ProcessUpdateInfoRes(CPCMsg& message);

    /// The PC: the next piece of an image, into the image's temporary file. An image that fails is answered with an
    /// error notice at once, and what still comes of it is dropped.
    int ProcessReceiveUpdateImage(CPCMsg& message, const SessionPtr& session);

    /// The PC gives the update up.
    int ProcessUpdateCancel(CPCMsg& message);

    /// Takes the received SYS package apart into the temporary files of its four images.
    int SplitSYSUpdateFile();

private:
    using Transfer = RMUP::Process::ImageTransfer;

    void TakeOffers(std::span<const std::uint8_t> payload);
    [[nodiscard]] int ReportOffers();

    /// Reads the header in the first packet and opens the image's temporary file. False when the image is refused.
    [[nodiscard]] bool BeginImage(Transfer& transfer, std::span<const std::uint8_t> payload);

    /// Appends a piece. False when it cannot be stored, or is more than was announced.
    [[nodiscard]] bool StorePiece(Transfer& transfer, std::span<const std::uint8_t> data);

    /// After the last piece: closes the file, answers the PC, and counts the image as received once it is whole.
    void CompleteImage(Transfer& transfer, const SessionPtr& session);

    /// Splits the package if the image is one. False when that failed.
    [[nodiscard]] bool SplitIfPackage(int image);

    void LogIncomplete(std::int64_t size, std::int64_t received);
    void LogClosed(int image);

    [[nodiscard]] bool CopySection(RMUP::Process::CByteSource& package);
    [[nodiscard]] bool CopySectionData(RMUP::Process::CByteSource& package, int image, std::int32_t size);

    QENFx::Log::FileLog* log_;
    CDeviceInfo* device_;
};
