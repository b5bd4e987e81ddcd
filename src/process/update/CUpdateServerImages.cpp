#include <cerrno>
#include <cstring>

#include "process/update/CUpdate.h"
#include "process/update/HttpResponse.h"
#include "process/update/ServerRequest.h"

namespace RMUP::Process {

namespace {

constexpr char kTag[] = "[CUpdate::DownloadContentsFromNet]";

}  // namespace

int CUpdate::DownloadContentsFromNet(Images& images) {
    for (int i = 0; i < kImageCount; ++i) {
        if (!images[static_cast<std::size_t>(i)].NeedUpdate) {
            continue;
        }
        if (DownloadImageFromNet(i, images) != 0) {
            log_->WriteError("%s Download file error", kTag);
            return -1;
        }
        log_->WriteInfo("%s %s file download complete", kTag, images[static_cast<std::size_t>(i)].FileName.c_str());
    }
    return 0;
}

int CUpdate::DownloadImageFromNet(int index, Images& images) {
    const Connection connection = ConnectUpdateServer();
    if (connection == nullptr) {
        return -1;
    }
    ImageInfo& image = images[static_cast<std::size_t>(index)];
    // The protocol version that has no answers in pieces: the body must be the image and nothing else.
    const std::string request = MakeServerRequest(image.ServerPath, kHttp10);
    log_->WriteInfo("%s Send to update server: %s", kTag, request.c_str());
    if (SendRequest(*connection, request, kTag) != 0 || RemoveReceivingHeader(*connection) != 0) {
        return -1;
    }

    UpdateHeader header;
    const char* name = image.FileName.c_str();
    if (!ReadMagic(*connection, header.magic)) {
        log_->WriteError("%s recv error during download %s file's magic", kTag, name);
        return -1;
    }
    if (header.magic != image.Magic) {
        log_->WriteError("%s %s file's magic number(%s) compare failed", kTag, name, header.magic.c_str());
        return -1;
    }
    if (ReadHeaderFromNet(*connection, image.FileName, header) != 0) {
        return -1;
    }
    if (header.version != device_->GetNewVersion(index)) {
        log_->WriteError("%s Update xml version and internal file version are different each other", kTag);
        return -1;
    }
    image.FileSize = header.size;
    device_->SetHeaderTail(index, header.tail);
    return index == kSYSImage ? DownloadPackageFromNet(*connection, images)
                              : DownloadToFile(*connection, index, false, images);
}

int CUpdate::RemoveReceivingHeader(CHttpConnection& connection) {
    static constexpr char kHeaderTag[] = "[CUpdate::RemoveReceivingHeader]";
    std::string header;
    if (!ReadHttpHeader(connection, header)) {
        log_->WriteError("%s recv error during HTTP header", kHeaderTag);
        return -1;
    }
    connection.SetLimit(kBodyLimit);
    return 0;
}

int CUpdate::ReadHeaderFromNet(CHttpConnection& connection, const std::string& name, UpdateHeader& header) {
    switch (ReadHeaderAfterMagic(connection, header)) {
        case HeaderField::kSize:
            log_->WriteError("%s recv error during download %s file's length", kTag, name.c_str());
            return -1;
        case HeaderField::kVersion:
            log_->WriteError("%s recv error during download %s file's version", kTag, name.c_str());
            return -1;
        case HeaderField::kTail:
            log_->WriteError("%s recv error during download %s file's checksum", kTag, name.c_str());
            return -1;
        case HeaderField::kMagic:
        case HeaderField::kNone:
            break;
    }
    if (header.size < 0) {
        log_->WriteError("%s (%s) Update File Size is abnormal: %d", kTag, name.c_str(), header.size);
        return -1;
    }
    return 0;
}

int CUpdate::DownloadPackageFromNet(CHttpConnection& connection, Images& images) {
    CPackageSections sections;
    while (!sections.AreComplete()) {
        UpdateHeader header;
        if (!ReadMagic(connection, header.magic)) {
            log_->WriteError("%s recv error during download %s file's magic", kTag, images[kSYSImage].FileName.c_str());
            return -1;
        }
        const int index = sections.Take(images, header.magic);
        if (index < 0) {
            log_->WriteError("%s Not correct file", kTag);
            return -1;
        }
        ImageInfo& image = images[static_cast<std::size_t>(index)];
        if (ReadHeaderFromNet(connection, image.FileName, header) != 0) {
            return -1;
        }
        image.FileSize = header.size;
        device_->SetNewVersion(index, header.version);
        device_->SetHeaderTail(index, header.tail);
        log_->WriteInfo("%s SYS Subfile Info\n<Magic:%s><Ver:%s><Size:%d>", kTag, image.Magic.c_str(),
                        header.version.getVersion(), header.size);
        if (DownloadToFile(connection, index, true, images) != 0) {
            return -1;
        }
        image.IsFile = true;
        image.NeedUpdate = true;
        image.InPackage = true;
    }
    return 0;
}

int CUpdate::DownloadToFile(CHttpConnection& connection, int index, bool section, Images& images) {
    ImageInfo& image = images[static_cast<std::size_t>(index)];
    COutputFile file(image.RawPath.c_str());
    if (!file.IsOpen()) {
        log_->WriteError("%s New file open error", kTag);
        return -1;
    }
    if (DownloadFile(connection, file, image.FileSize, index, section, images) != 0) {
        return -1;
    }
    if (!file.Close()) {
        log_->WriteError("%s file write error: %s", kTag, strerror(errno));
        return -1;
    }
    if (section) {
        AddBytes(images[kSYSImage].Download, kUpdateHeaderSize);
    }
    log_->WriteInfo("%s %s file copy complete", kTag, image.RawPath.c_str());
    return 0;
}

int CUpdate::DownloadFile(CHttpConnection& connection, COutputFile& file, std::int32_t size, int index, bool section,
                          Images& images) {
    static constexpr char kFileTag[] = "[CUpdate::DownloadFile]";
    ImageInfo& image = images[static_cast<std::size_t>(index)];
    for (auto left = static_cast<std::size_t>(size); left > 0;) {
        const auto piece = connection.Take(left);
        if (piece.empty()) {
            const int error = errno == 0 ? ECONNRESET : errno;
            log_->WriteError("%s recv error: %s", kFileTag, strerror(error));
            return -1;
        }
        if (!file.Write(piece)) {
            log_->WriteError("%s file write error: %s", kFileTag, strerror(errno));
            return -1;
        }
        left -= piece.size();
        ForEachChunk(piece.size(), [&](std::int32_t count) {
            AddBytes(image.Download, count);
            if (section) {
                AddBytes(images[kSYSImage].Download, count);
            }
            log_->WriteInfo("%s Type(%d) Downloaded size: %d", kFileTag, index, image.Download.load());
            SendUDSUpdateStatus(images);
        });
    }
    return 0;
}

}  // namespace RMUP::Process
