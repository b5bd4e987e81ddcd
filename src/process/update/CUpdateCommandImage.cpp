#include <cerrno>
#include <cstring>

#include "process/CUpdateCommand.h"
#include "process/update/CFileSource.h"
#include "process/update/UpdateFile.h"
#include "process/update/UpdateMessages.h"
#include "wire/PCCommand.h"

using RMUP::Process::CByteSource;
using RMUP::Process::CFileSource;
using RMUP::Process::CImageReceiver;
using RMUP::Process::COutputFile;
using RMUP::Process::HeaderField;
using RMUP::Process::UpdateHeader;

namespace {

constexpr char kTag[] = "[CUpdateCommand::ProcessReceiveUpdateImage]";
constexpr char kSplitTag[] = "[CUpdateCommand::SplitSYSUpdateFile]";

}  // namespace

int CUpdateCommand::ProcessReceiveUpdateImage(CPCMsg& message, const SessionPtr& session) {
    CImageReceiver::Visit visit(CImageReceiver::GetInstance());
    Transfer* const transfer = visit.TransferOf(session);
    if (transfer == nullptr) {
        log_->WriteError("%s Another update processing now", kTag);
        RMUP::Process::SendUpdateImpossible(session);
        return -1;
    }

    const bool last = !message.GetFlag();
    const bool first = !transfer->begun;
    transfer->begun = true;
    bool accepted = first || transfer->file.has_value();
    if (first && !BeginImage(*transfer, message.GetPayload())) {
        RMUP::Process::SendUpdateImpossible(session);
        accepted = false;
    }
    if (accepted) {
        const auto data = message.GetPayload().subspan(first ? RMUP::Process::kUpdateHeaderSize : 0);
        if (!StorePiece(*transfer, data)) {
            RMUP::Process::SendUpdateImpossible(session);
            transfer->file.reset();
            LogClosed(transfer->image);
        } else if (last) {
            CompleteImage(*transfer, session);
        } else if (transfer->received < transfer->size) {
            // The count reaches the size only when the image is whole on disk, after its last packet.
            device_->GetImageInfo()[static_cast<std::size_t>(transfer->image)].Download = transfer->received;
        }
    }
    if (last) {
        visit.Finish();
    }
    return 0;
}

bool CUpdateCommand::BeginImage(Transfer& transfer, std::span<const std::uint8_t> payload) {
    if (payload.size() < RMUP::Process::kUpdateHeaderSize) {
        log_->WriteError("%s Payload length differs from it's structure", kTag);
        return false;
    }
    const UpdateHeader header = RMUP::Process::ParseUpdateHeader(payload.first<RMUP::Process::kUpdateHeaderSize>());
    const int index = RMUP::Process::FindImage(device_->GetImageInfo(), header.magic);
    if (index < 0) {
        log_->WriteError("%s There is no matched magic number", kTag);
        device_->ClearImageInfo();
        return false;
    }
    if (header.size < 0) {
        log_->WriteError("%s Update File Size is abnormal: %d bytes", kTag, header.size);
        return false;
    }

    ImageInfo& image = device_->GetImageInfo()[static_cast<std::size_t>(index)];
    image.IsFile = true;
    transfer.image = index;
    transfer.size = header.size;
    log_->WriteInfo("%s Matched image: (%d)", kTag, index);
    // An image that is sent again starts again. The count goes first, so that the new size never meets the old count.
    image.Download = 0;
    image.FileSize = header.size;
    log_->WriteInfo("%s Update File Size: %d bytes", kTag, header.size);
    device_->SetNewVersion(index, header.version);
    log_->WriteInfo("%s (%d)Image version: %s", kTag, index, header.version.getVersion().c_str());
    device_->SetHeaderTail(index, header.tail);

    transfer.file.emplace(image.RawPath.c_str());
    if (!transfer.file->IsOpen()) {
        log_->WriteError("%s File for temporary save (%s) open error: %s", kTag, image.RawPath.c_str(),
                         strerror(errno));
        transfer.file.reset();
        return false;
    }
    log_->WriteInfo("%s Tmp save file open: %s", kTag, image.RawPath.c_str());
    return true;
}

bool CUpdateCommand::StorePiece(Transfer& transfer, std::span<const std::uint8_t> data) {
    const auto room = static_cast<std::size_t>(transfer.size - transfer.received);
    if (data.size() > room) {
        LogIncomplete(transfer.size,
                      static_cast<std::int64_t>(transfer.received) + static_cast<std::int64_t>(data.size()));
        return false;
    }
    if (!transfer.file->Write(data)) {
        log_->WriteError("%s Tmp save file write error: %s", kTag, strerror(errno));
        return false;
    }
    transfer.received += static_cast<std::int32_t>(data.size());
    return true;
}

void CUpdateCommand::CompleteImage(Transfer& transfer, const SessionPtr& session) {
    const bool stored = transfer.file->Close();
    if (!stored) {
        log_->WriteError("%s Tmp save file write error: %s", kTag, strerror(errno));
    }
    transfer.file.reset();

    const bool complete = stored && transfer.received == transfer.size;
    if (complete) {
        RMUP::Process::SendToPC(session, kImageReceived, {});
    } else {
        LogIncomplete(transfer.size, transfer.received);
        RMUP::Process::SendUpdateImpossible(session);
    }
    const bool split = SplitIfPackage(transfer.image);
    if (complete && !split) {
        RMUP::Process::SendUpdateImpossible(session);
    }
    if (split && stored) {
        // Who waits for the image finds it whole on disk from here on.
        device_->GetImageInfo()[static_cast<std::size_t>(transfer.image)].Download = transfer.received;
    }
    LogClosed(transfer.image);
}

bool CUpdateCommand::SplitIfPackage(int image) {
    return image != kSYSImage || SplitSYSUpdateFile() == 0;
}

void CUpdateCommand::LogIncomplete(std::int64_t size, std::int64_t received) {
    log_->WriteError("%s Download cannot complete: %d/%d bytes", kTag, static_cast<int>(size),
                     static_cast<int>(received));
    log_->WriteError("%s Downloaded size is not correspond with update file size", kTag);
}

void CUpdateCommand::LogClosed(int index) {
    const ImageInfo& image = device_->GetImageInfo()[static_cast<std::size_t>(index)];
    log_->WriteInfo("%s Type(%d) File(%d) NeedUpdate(%d) Size(%d) DownSize(%d) Progress(%d)", kTag, index,
                    image.IsFile.load(), image.NeedUpdate.load(), image.FileSize.load(), image.Download.load(),
                    image.Progress.load());
    log_->WriteInfo("%s Tmp save file closed: %s", kTag, image.RawPath.c_str());
}

int CUpdateCommand::SplitSYSUpdateFile() {
    const std::string& path = device_->GetImageInfo()[kSYSImage].RawPath;
    CFileSource package(path.c_str());
    if (!package.IsOpen()) {
        log_->WriteError("%s File for temporary save (%s) open error", kSplitTag, path.c_str());
        return -1;
    }
    for (int i = 0; i < RMUP::Process::kSYSSectionCount; ++i) {
        if (!CopySection(package)) {
            return -1;
        }
    }
    return 0;
}

bool CUpdateCommand::CopySection(CByteSource& package) {
    UpdateHeader header;
    if (!RMUP::Process::ReadMagic(package, header.magic)) {
        log_->WriteError("%s file read error", kSplitTag);
        return false;
    }
    const int index = RMUP::Process::FindSectionImage(device_->GetImageInfo(), header.magic);
    if (index >= 0) {
        ImageInfo& image = device_->GetImageInfo()[static_cast<std::size_t>(index)];
        image.NeedUpdate = true;
        image.IsFile = true;
        log_->WriteInfo("%s Matched image: (%d)", kSplitTag, index);
    } else {
        RMUP::Process::SendToPC(device_->GetSession(), kImageReceived, {});
    }
    if (RMUP::Process::ReadHeaderAfterMagic(package, header) != HeaderField::kNone || header.size < 0) {
        log_->WriteError("%s file read error", kSplitTag);
        return false;
    }
    if (index < 0) {
        const bool passed = package.Skip(static_cast<std::size_t>(header.size));
        if (!passed) {
            log_->WriteError("%s file read error", kSplitTag);
        }
        return passed;
    }
    ImageInfo& image = device_->GetImageInfo()[static_cast<std::size_t>(index)];
    image.Download = 0;
    image.FileSize = header.size;
    device_->SetNewVersion(index, header.version);
    device_->SetHeaderTail(index, header.tail);
    return CopySectionData(package, index, header.size);
}

bool CUpdateCommand::CopySectionData(CByteSource& package, int index, std::int32_t size) {
    ImageInfo& image = device_->GetImageInfo()[static_cast<std::size_t>(index)];
    COutputFile file(image.RawPath.c_str());
    if (!file.IsOpen()) {
        log_->WriteError("%s File for temporary save (%s) open error", kSplitTag, image.RawPath.c_str());
        return false;
    }
    for (auto left = static_cast<std::size_t>(size); left > 0;) {
        const auto piece = package.Take(left);
        if (piece.empty()) {
            log_->WriteError("%s file read error", kSplitTag);
            return false;
        }
        if (!file.Write(piece)) {
            log_->WriteError("%s file write error: %s", kSplitTag, strerror(errno));
            return false;
        }
        left -= piece.size();
        image.Download += static_cast<std::int32_t>(piece.size());
    }
    if (!file.Close()) {
        log_->WriteError("%s file write error: %s", kSplitTag, strerror(errno));
        return false;
    }
    return true;
}
