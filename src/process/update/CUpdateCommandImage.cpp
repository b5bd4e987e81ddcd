#include <cerrno>
#include <cstring>

#include "common/CTaggedLog.h"
#include "process/update/CFileSource.h"
#include "process/update/CPackageReader.h"
#include "process/update/CUpdateAccess.h"
#include "process/update/CUpdateCommand.h"
#include "process/update/CopyBytes.h"
#include "process/update/UpdateFile.h"
#include "process/update/UpdateMessages.h"
#include "wire/PCCommand.h"

using namespace RMUP::Process;

namespace {

constexpr char kTag[] = "[CUpdateCommand::ProcessReceiveUpdateImage]";
constexpr char kSplitTag[] = "[CUpdateCommand::SplitSYSUpdateFile]";

}  // namespace

int CUpdateCommand::ProcessReceiveUpdateImage(const CPCMsg& message, const SessionPtr& session) {
    const CTaggedLog log(log_, kTag);
    CImageGate& gate = service_.updates.Gate();
    const bool last = !message.GetFlag();
    if (gate.IsDropped(session, last)) {
        return 0;
    }
    {
        CImageGate::Visit visit(gate);
        if (IsForeign(service_, session, log) || !TakePacket(visit, message.GetPayload(), last, session)) {
            answers_.push_back(Answer::kImpossible);
            if (!last) {
                visit.DropRest(session);
            }
        }
    }
    SendAnswers(session);
    return 0;
}

bool CUpdateCommand::TakePacket(CImageGate::Visit& visit, std::span<const std::uint8_t> payload, bool last,
                                const SessionPtr& session) {
    const CTaggedLog log(log_, kTag);
    CImageGate::Transfer* const transfer = visit.TransferOf(session);
    if (transfer == nullptr) {
        log.WriteError("Another update processing now");
        return false;
    }
    std::span<const std::uint8_t> data = payload;
    if (*transfer == nullptr) {
        *transfer = BeginImage(payload, session);
        if (*transfer == nullptr) {
            return false;
        }
        data = payload.subspan(kUpdateHeaderSize);
    }
    if (!StorePiece(**transfer, data)) {
        LogClosed((*transfer)->image);
        transfer->reset();
        return false;
    }
    if (last) {
        CompleteImage(**transfer);
        transfer->reset();
    } else if ((*transfer)->received < (*transfer)->size) {
        // The count reaches the size only when the image is whole on disk, after its last packet.
        (*transfer)->image.Download = (*transfer)->received;
    }
    return true;
}

void CUpdateCommand::SendAnswers(const SessionPtr& session) {
    for (const Answer answer : answers_) {
        switch (answer) {
            case Answer::kReceived:
                SendToPC(service_, session, PCCommand::kImageReceived, {});
                break;
            case Answer::kImpossible:
                SendUpdateImpossible(service_, session);
                break;
            case Answer::kUnknownSection:
                SendToPC(service_, service_.device.GetSession(), PCCommand::kImageReceived, {});
                break;
        }
    }
}

std::unique_ptr<CImageTransfer> CUpdateCommand::BeginImage(std::span<const std::uint8_t> payload,
                                                           const SessionPtr& session) {
    const CTaggedLog log(log_, kTag);
    if (payload.size() < kUpdateHeaderSize) {
        log.WriteError("Payload length differs from it's structure");
        return nullptr;
    }
    const UpdateHeader header = ParseUpdateHeader(payload.first<kUpdateHeaderSize>());
    ImageInfo* const found = FindImage(service_.device.GetImageInfo(), header.magic);
    if (found == nullptr) {
        log.WriteError("There is no matched magic number");
        ForgetImages();
        return nullptr;
    }
    if (header.size < 0) {
        log.WriteError("Update File Size is abnormal: %d bytes", header.size);
        return nullptr;
    }

    ImageInfo& image = *found;
    image.IsFile = true;
    image.InPackage = false;
    log.WriteInfo("Matched image: (%d)", image.Number());
    // An image that is sent again starts again. The count goes first, so that the new size never meets the old count.
    image.Download = 0;
    TakeHeader(image, header);
    log.WriteInfo("Update File Size: %d bytes", header.size);
    log.WriteInfo("(%d)Image version: %s", image.Number(), header.version.getVersion());

    auto transfer = std::make_unique<Transfer>(session, image, header.size);
    if (!transfer->file.IsOpen()) {
        log.WriteError("File for temporary save (%s) open error: %s", image.RawPath.c_str(), strerror(errno));
        return nullptr;
    }
    log.WriteInfo("Tmp save file open: %s", image.RawPath.c_str());
    return transfer;
}

void CUpdateCommand::ForgetImages() {
    // A running update keeps what it has received. That the PC has given the update up stays in any case.
    if (!service_.updates.Slot().IsTaken()) {
        for (ImageInfo& image : service_.device.GetImageInfo()) {
            image.Clear();
        }
    }
}

bool CUpdateCommand::StorePiece(Transfer& transfer, std::span<const std::uint8_t> data) {
    const CTaggedLog log(log_, kTag);
    const auto room = static_cast<std::size_t>(transfer.size - transfer.received);
    if (data.size() > room) {
        LogIncomplete(transfer.size,
                      static_cast<std::int64_t>(transfer.received) + static_cast<std::int64_t>(data.size()));
        return false;
    }
    if (!transfer.file.Write(data)) {
        log.WriteError("Tmp save file write error: %s", strerror(errno));
        return false;
    }
    transfer.received += static_cast<std::int32_t>(data.size());
    return true;
}

void CUpdateCommand::CompleteImage(Transfer& transfer) {
    const CTaggedLog log(log_, kTag);
    const bool stored = transfer.Close();
    if (!stored) {
        log.WriteError("Tmp save file write error: %s", strerror(errno));
    }
    const bool complete = stored && transfer.received == transfer.size;
    if (!complete) {
        LogIncomplete(transfer.size, transfer.received);
    }
    answers_.push_back(complete ? Answer::kReceived : Answer::kImpossible);
    const bool split = SplitIfPackage(transfer.image);
    if (complete && !split) {
        answers_.push_back(Answer::kImpossible);
    }
    if (split && stored) {
        // Who waits for the image finds it whole on disk from here on.
        transfer.image.Download = transfer.received;
    }
    LogClosed(transfer.image);
}

bool CUpdateCommand::SplitIfPackage(const ImageInfo& image) {
    return image.Row.installation != Wire::Installation::kItsParts || SplitSYSUpdateFile() == 0;
}

void CUpdateCommand::LogIncomplete(std::int64_t size, std::int64_t received) {
    const CTaggedLog log(log_, kTag);
    log.WriteError("Download cannot complete: %d/%d bytes", static_cast<int>(size), static_cast<int>(received));
    log.WriteError("Downloaded size is not correspond with update file size");
}

void CUpdateCommand::LogClosed(const ImageInfo& image) {
    const CTaggedLog log(log_, kTag);
    log.WriteInfo("Type(%d) File(%d) NeedUpdate(%d) Size(%d) DownSize(%d) Progress(%d)", image.Number(),
                  image.IsFile.load(), image.NeedUpdate.load(), image.FileSize.load(), image.Download.load(),
                  image.Progress.load());
    log.WriteInfo("Tmp save file closed: %s", image.RawPath.c_str());
}

int CUpdateCommand::SplitSYSUpdateFile() {
    const CTaggedLog log(log_, kSplitTag);
    const std::string& path = service_.device.GetImageInfo()[ImageId::kSYS].RawPath;
    CFileSource package(path.c_str());
    if (!package.IsOpen()) {
        log.WriteError("File for temporary save (%s) open error", path.c_str());
        return -1;
    }
    // What came of a package, or of an image, before is not this package's.
    for (const ImageId part : Wire::kSYSParts) {
        service_.device.GetImageInfo()[part].Clear();
    }
    CPackageReader reader(package, service_.device.GetImageInfo());
    for (int i = 0; i < kSYSSectionCount; ++i) {
        if (!CopySection(package, reader)) {
            return -1;
        }
    }
    if (!reader.IsComplete()) {
        log.WriteError("Not correct file");
        return -1;
    }
    return 0;
}

bool CUpdateCommand::CopySection(CByteSource& package, CPackageReader& reader) {
    const CTaggedLog log(log_, kSplitTag);
    const auto section = reader.ReadMagic();
    switch (section) {
        case CPackageReader::Section::kCut:
            log.WriteError("file read error");
            return false;
        case CPackageReader::Section::kWrong:
            log.WriteError("Not correct file");
            return false;
        case CPackageReader::Section::kForeign:
            answers_.push_back(Answer::kUnknownSection);
            break;
        case CPackageReader::Section::kPart:
            reader.Image().NeedUpdate = true;
            reader.Image().IsFile = true;
            log.WriteInfo("Matched image: (%d)", reader.Image().Number());
            break;
    }
    const UpdateHeader& header = reader.Header();
    if (reader.ReadHeader() != HeaderField::kNone || header.size < 0) {
        log.WriteError("file read error");
        return false;
    }
    if (section == CPackageReader::Section::kForeign) {
        const bool passed = package.Skip(static_cast<std::size_t>(header.size));
        if (!passed) {
            log.WriteError("file read error");
        }
        return passed;
    }
    TakeHeader(reader.Image(), header);
    reader.Image().InPackage = true;
    return CopySectionData(package, reader.Image());
}

bool CUpdateCommand::CopySectionData(CByteSource& package, ImageInfo& image) {
    const CTaggedLog log(log_, kSplitTag);
    COutputFile file(image.RawPath.c_str());
    if (!file.IsOpen()) {
        log.WriteError("File for temporary save (%s) open error", image.RawPath.c_str());
        return false;
    }
    auto left = static_cast<std::size_t>(image.FileSize);
    const Copied copied = CopyBytes(package, file, left, [&](std::int64_t count) { AddBytes(image.Download, count); });
    if (copied == Copied::kNotRead) {
        log.WriteError("file read error");
        return false;
    }
    if (copied == Copied::kNotWritten || !file.Close()) {
        log.WriteError("file write error: %s", strerror(errno));
        return false;
    }
    return true;
}
