#include <cerrno>
#include <cstring>

#include "config/CConfigMgr.h"
#include "process/update/CPackageReader.h"
#include "process/update/CUpdate.h"
#include "process/update/CopyBytes.h"
#include "process/update/HttpResponse.h"
#include "process/update/ServerRequest.h"

namespace RMUP::Process {

namespace {

constexpr char kTag[] = "[CUpdate::DownloadContentsFromNet]";

}  // namespace

int CUpdate::DownloadContentsFromNet() {
    for (ImageInfo& image : images_) {
        if (!image.NeedUpdate) {
            continue;
        }
        if (!DownloadImageFromNet(image)) {
            log_->WriteError("%s Download file error", kTag);
            return -1;
        }
        log_->WriteInfo("%s %s file download complete", kTag, image.FileName.c_str());
    }
    return 0;
}

bool CUpdate::DownloadImageFromNet(ImageInfo& image) {
    const Connection connection = ConnectUpdateServer();
    if (connection == nullptr) {
        return false;
    }
    // The protocol version that has no answers in pieces: the body must be the image and nothing else.
    const std::string request =
        MakeServerRequest(service_.config.GetContents(ConfigKey::kUpdateURL), image.ServerPath, kHttp10);
    log_->WriteInfo("%s Send to update server: %s", kTag, request.c_str());
    if (!SendRequest(*connection, request, kTag) || !RemoveReceivingHeader(*connection)) {
        return false;
    }

    UpdateHeader header;
    const char* name = image.FileName.c_str();
    if (!ReadMagic(*connection, header.magic)) {
        log_->WriteError("%s recv error during download %s file's magic", kTag, name);
        return false;
    }
    if (header.magic != image.Magic) {
        log_->WriteError("%s %s file's magic number(%s) compare failed", kTag, name, header.magic.c_str());
        return false;
    }
    const HeaderField missing = ReadHeaderAfterMagic(*connection, header);
    if (!IsWholeHeader(image, header, missing)) {
        return false;
    }
    if (header.version != image.GetNewVersion()) {
        log_->WriteError("%s Update xml version and internal file version are different each other", kTag);
        return false;
    }
    TakeHeader(image, header);
    return image.Row.installation == Wire::Installation::kItsParts ? DownloadPackageFromNet(*connection, image)
                                                                   : DownloadToFile(*connection, image);
}

bool CUpdate::RemoveReceivingHeader(CHttpConnection& connection) {
    static constexpr char kHeaderTag[] = "[CUpdate::RemoveReceivingHeader]";
    std::string header;
    if (!ReadHttpHeader(connection, header)) {
        log_->WriteError("%s recv error during HTTP header", kHeaderTag);
        return false;
    }
    connection.SetLimit(kBodyLimit);
    return true;
}

bool CUpdate::IsWholeHeader(const ImageInfo& image, const UpdateHeader& header, HeaderField missing) {
    const char* name = image.FileName.c_str();
    switch (missing) {
        case HeaderField::kSize:
            log_->WriteError("%s recv error during download %s file's length", kTag, name);
            return false;
        case HeaderField::kVersion:
            log_->WriteError("%s recv error during download %s file's version", kTag, name);
            return false;
        case HeaderField::kTail:
            log_->WriteError("%s recv error during download %s file's checksum", kTag, name);
            return false;
        case HeaderField::kNone:
            break;
    }
    if (header.size < 0) {
        log_->WriteError("%s (%s) Update File Size is abnormal: %d", kTag, name, header.size);
        return false;
    }
    return true;
}

bool CUpdate::DownloadPackageFromNet(CHttpConnection& connection, const ImageInfo& package) {
    CPackageReader reader(connection, images_);
    while (!reader.IsComplete()) {
        const auto section = reader.ReadMagic();
        if (section == CPackageReader::Section::kCut) {
            log_->WriteError("%s recv error during download %s file's magic", kTag, package.FileName.c_str());
            return false;
        }
        if (section != CPackageReader::Section::kPart) {
            log_->WriteError("%s Not correct file", kTag);
            return false;
        }
        ImageInfo& image = reader.Image();
        const HeaderField missing = reader.ReadHeader();
        if (!IsWholeHeader(image, reader.Header(), missing)) {
            return false;
        }
        TakeHeader(image, reader.Header());
        log_->WriteInfo("%s SYS Subfile Info\n<Magic:%s><Ver:%s><Size:%d>", kTag, image.Magic.c_str(),
                        reader.Header().version.getVersion(), reader.Header().size);
        if (!DownloadToFile(connection, image)) {
            return false;
        }
        image.IsFile = true;
        image.NeedUpdate = true;
        image.InPackage = true;
    }
    return true;
}

bool CUpdate::DownloadToFile(CHttpConnection& connection, ImageInfo& image) {
    COutputFile file(image.RawPath.c_str());
    if (!file.IsOpen()) {
        log_->WriteError("%s New file open error", kTag);
        return false;
    }
    if (DownloadFile(connection, file, image) != 0) {
        return false;
    }
    if (!file.Close()) {
        log_->WriteError("%s file write error: %s", kTag, strerror(errno));
        return false;
    }
    CountHeader(images_, image, &ImageInfo::Download);
    log_->WriteInfo("%s %s file copy complete", kTag, image.RawPath.c_str());
    return true;
}

int CUpdate::DownloadFile(CHttpConnection& connection, COutputFile& file, ImageInfo& image) {
    static constexpr char kFileTag[] = "[CUpdate::DownloadFile]";
    auto left = static_cast<std::size_t>(image.FileSize);
    const Copied copied = CopyBytes(connection, file, left, [&](std::int64_t count) {
        Count(images_, image, &ImageInfo::Download, count);
        log_->WriteInfo("%s Type(%d) Downloaded size: %d", kFileTag, image.Number(), image.Download.load());
        SendUDSUpdateStatus();
    });
    if (copied == Copied::kNotRead) {
        log_->WriteError("%s recv error: %s", kFileTag, strerror(errno == 0 ? ECONNRESET : errno));
    } else if (copied == Copied::kNotWritten) {
        log_->WriteError("%s file write error: %s", kFileTag, strerror(errno));
    }
    return copied == Copied::kWhole ? 0 : -1;
}

}  // namespace RMUP::Process
