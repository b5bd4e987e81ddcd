#include <cerrno>
#include <cstring>

#include "process/CUpdateCommand.h"
#include "process/update/CFileSource.h"
#include "process/update/CUpdateSlot.h"
#include "process/update/UpdateFile.h"
#include "process/update/UpdateMessages.h"
#include "wire/PCCommand.h"

using RMUP::Process::CByteSource;
using RMUP::Process::CFileSource;
using RMUP::Process::CImageReceiver;
using RMUP::Process::CImageTransfer;
using RMUP::Process::COutputFile;
using RMUP::Process::CPackageSections;
using RMUP::Process::CUpdateSlot;
using RMUP::Process::HeaderField;
using RMUP::Process::UpdateHeader;

namespace {

constexpr char kTag[] = "[CUpdateCommand::ProcessReceiveUpdateImage]";
constexpr char kSplitTag[] = "[CUpdateCommand::SplitSYSUpdateFile]";

}  // namespace

int CUpdateCommand::ProcessReceiveUpdateImage(CPCMsg& message, const SessionPtr& session) {
    CImageReceiver* receiver = CImageReceiver::GetInstance();
    const bool last = !message.GetFlag();
    if (receiver->IsDropped(session, last)) {
        return 0;
    }
    {
        CImageReceiver::Visit visit(receiver);
        if (RMUP::Process::IsForeign(session, kTag) || !TakePacket(visit, message.GetPayload(), last, session)) {
            answers_.push_back(Answer::kImpossible);
            if (!last) {
                visit.DropRest(session);
            }
        }
    }
    SendAnswers(session);
    return 0;
}

bool CUpdateCommand::TakePacket(CImageReceiver::Visit& visit, std::span<const std::uint8_t> payload, bool last,
                                const SessionPtr& session) {
    CImageReceiver::Transfer* const transfer = visit.TransferOf(session);
    if (transfer == nullptr) {
        log_->WriteError("%s Another update processing now", kTag);
        return false;
    }
    std::span<const std::uint8_t> data = payload;
    if (*transfer == nullptr) {
        *transfer = BeginImage(payload, session);
        if (*transfer == nullptr) {
            return false;
        }
        data = payload.subspan(RMUP::Process::kUpdateHeaderSize);
    }
    if (!StorePiece(**transfer, data)) {
        LogClosed((*transfer)->index);
        transfer->reset();
        return false;
    }
    if (last) {
        CompleteImage(**transfer);
        transfer->reset();
    } else if ((*transfer)->received < (*transfer)->size) {
        // The count reaches the size only when the image is whole on disk, after its last packet.
        device_->GetImageInfo()[static_cast<std::size_t>((*transfer)->index)].Download = (*transfer)->received;
    }
    return true;
}

void CUpdateCommand::SendAnswers(const SessionPtr& session) {
    for (const Answer answer : answers_) {
        switch (answer) {
            case Answer::kReceived:
                RMUP::Process::SendToPC(session, kImageReceived, {});
                break;
            case Answer::kImpossible:
                RMUP::Process::SendUpdateImpossible(session);
                break;
            case Answer::kUnknownSection:
                RMUP::Process::SendToPC(device_->GetSession(), kImageReceived, {});
                break;
        }
    }
}

std::unique_ptr<CImageTransfer> CUpdateCommand::BeginImage(std::span<const std::uint8_t> payload,
                                                           const SessionPtr& session) {
    if (payload.size() < RMUP::Process::kUpdateHeaderSize) {
        log_->WriteError("%s Payload length differs from it's structure", kTag);
        return nullptr;
    }
    const UpdateHeader header = RMUP::Process::ParseUpdateHeader(payload.first<RMUP::Process::kUpdateHeaderSize>());
    const int index = RMUP::Process::FindImage(device_->GetImageInfo(), header.magic);
    if (index < 0) {
        log_->WriteError("%s There is no matched magic number", kTag);
        ForgetImages();
        return nullptr;
    }
    if (header.size < 0) {
        log_->WriteError("%s Update File Size is abnormal: %d bytes", kTag, header.size);
        return nullptr;
    }

    ImageInfo& image = device_->GetImageInfo()[static_cast<std::size_t>(index)];
    image.IsFile = true;
    image.InPackage = false;
    log_->WriteInfo("%s Matched image: (%d)", kTag, index);
    // An image that is sent again starts again. The count goes first, so that the new size never meets the old count.
    image.Download = 0;
    image.FileSize = header.size;
    log_->WriteInfo("%s Update File Size: %d bytes", kTag, header.size);
    device_->SetNewVersion(index, header.version);
    log_->WriteInfo("%s (%d)Image version: %s", kTag, index, header.version.getVersion());
    device_->SetHeaderTail(index, header.tail);

    auto transfer = std::make_unique<Transfer>(session, index, image, header.size);
    if (!transfer->file.IsOpen()) {
        log_->WriteError("%s File for temporary save (%s) open error: %s", kTag, image.RawPath.c_str(),
                         strerror(errno));
        return nullptr;
    }
    log_->WriteInfo("%s Tmp save file open: %s", kTag, image.RawPath.c_str());
    return transfer;
}

void CUpdateCommand::ForgetImages() {
    // A running update keeps what it has received. That the PC has given the update up stays in any case.
    if (!CUpdateSlot::IsTaken()) {
        for (ImageInfo& image : device_->GetImageInfo()) {
            image.Clear();
        }
    }
}

bool CUpdateCommand::StorePiece(Transfer& transfer, std::span<const std::uint8_t> data) {
    const auto room = static_cast<std::size_t>(transfer.size - transfer.received);
    if (data.size() > room) {
        LogIncomplete(transfer.size,
                      static_cast<std::int64_t>(transfer.received) + static_cast<std::int64_t>(data.size()));
        return false;
    }
    if (!transfer.file.Write(data)) {
        log_->WriteError("%s Tmp save file write error: %s", kTag, strerror(errno));
        return false;
    }
    transfer.received += static_cast<std::int32_t>(data.size());
    return true;
}

void CUpdateCommand::CompleteImage(Transfer& transfer) {
    const bool stored = transfer.Close();
    if (!stored) {
        log_->WriteError("%s Tmp save file write error: %s", kTag, strerror(errno));
    }
    const bool complete = stored && transfer.received == transfer.size;
    if (!complete) {
        LogIncomplete(transfer.size, transfer.received);
    }
    answers_.push_back(complete ? Answer::kReceived : Answer::kImpossible);
    const bool split = SplitIfPackage(transfer.index);
    if (complete && !split) {
        answers_.push_back(Answer::kImpossible);
    }
    if (split && stored) {
        // Who waits for the image finds it whole on disk from here on.
        device_->GetImageInfo()[static_cast<std::size_t>(transfer.index)].Download = transfer.received;
    }
    LogClosed(transfer.index);
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
    // What came of a package, or of an image, before is not this package's.
    for (const int part : RMUP::Process::kSYSParts) {
        device_->GetImageInfo()[static_cast<std::size_t>(part)].Clear();
    }
    CPackageSections sections;
    for (int i = 0; i < RMUP::Process::kSYSSectionCount; ++i) {
        if (!CopySection(package, sections)) {
            return -1;
        }
    }
    if (!sections.AreComplete()) {
        log_->WriteError("%s Not correct file", kSplitTag);
        return -1;
    }
    return 0;
}

bool CUpdateCommand::CopySection(CByteSource& package, CPackageSections& sections) {
    ImageInfos& images = device_->GetImageInfo();
    UpdateHeader header;
    if (!RMUP::Process::ReadMagic(package, header.magic)) {
        log_->WriteError("%s file read error", kSplitTag);
        return false;
    }
    const bool known = RMUP::Process::FindImage(images, header.magic) >= 0;
    const int index = sections.Take(images, header.magic);
    if (known && index < 0) {
        log_->WriteError("%s Not correct file", kSplitTag);
        return false;
    }
    if (known) {
        ImageInfo& image = images[static_cast<std::size_t>(index)];
        image.NeedUpdate = true;
        image.IsFile = true;
        log_->WriteInfo("%s Matched image: (%d)", kSplitTag, index);
    } else {
        answers_.push_back(Answer::kUnknownSection);
    }
    if (RMUP::Process::ReadHeaderAfterMagic(package, header) != HeaderField::kNone || header.size < 0) {
        log_->WriteError("%s file read error", kSplitTag);
        return false;
    }
    if (!known) {
        const bool passed = package.Skip(static_cast<std::size_t>(header.size));
        if (!passed) {
            log_->WriteError("%s file read error", kSplitTag);
        }
        return passed;
    }
    ImageInfo& image = images[static_cast<std::size_t>(index)];
    image.FileSize = header.size;
    image.InPackage = true;
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
