#include <cerrno>
#include <cstring>

#include "common/CTaggedLog.h"
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
    const CTaggedLog log(log_, kTag);
    for (ImageInfo& image : images_) {
        if (!image.NeedUpdate) {
            continue;
        }
        if (!DownloadImageFromNet(image)) {
            log.WriteError("Download file error");
            return -1;
        }
        log.WriteInfo("%s file download complete", image.FileName.c_str());
    }
    return 0;
}

bool CUpdate::DownloadImageFromNet(ImageInfo& image) {
    const CTaggedLog log(log_, kTag);
    const Connection connection = ConnectUpdateServer();
    if (connection == nullptr) {
        return false;
    }
    // The protocol version that has no answers in pieces: the body must be the image and nothing else.
    const std::string request =
        MakeServerRequest(service_.config.GetContents(ConfigKey::kUpdateURL), image.ServerPath, kHttp10);
    log.WriteInfo("Send to update server: %s", request.c_str());
    if (!SendRequest(*connection, request, log) || !RemoveReceivingHeader(*connection)) {
        return false;
    }

    UpdateHeader header;
    const char* name = image.FileName.c_str();
    if (!ReadMagic(*connection, header.magic)) {
        log.WriteError("recv error during download %s file's magic", name);
        return false;
    }
    if (header.magic != image.Magic) {
        log.WriteError("%s file's magic number(%s) compare failed", name, header.magic.c_str());
        return false;
    }
    const HeaderField missing = ReadHeaderAfterMagic(*connection, header);
    if (!IsWholeHeader(image, header, missing)) {
        return false;
    }
    if (header.version != image.GetNewVersion()) {
        log.WriteError("Update xml version and internal file version are different each other");
        return false;
    }
    TakeHeader(image, header);
    return image.Row.installation == Wire::Installation::kItsParts ? DownloadPackageFromNet(*connection, image)
                                                                   : DownloadToFile(*connection, image);
}

bool CUpdate::RemoveReceivingHeader(CHttpConnection& connection) {
    const CTaggedLog log(log_, "[CUpdate::RemoveReceivingHeader]");
    std::string header;
    if (!ReadHttpHeader(connection, header)) {
        log.WriteError("recv error during HTTP header");
        return false;
    }
    connection.SetLimit(kBodyLimit);
    return true;
}

bool CUpdate::IsWholeHeader(const ImageInfo& image, const UpdateHeader& header, HeaderField missing) {
    const CTaggedLog log(log_, kTag);
    const char* name = image.FileName.c_str();
    switch (missing) {
        case HeaderField::kSize:
            log.WriteError("recv error during download %s file's length", name);
            return false;
        case HeaderField::kVersion:
            log.WriteError("recv error during download %s file's version", name);
            return false;
        case HeaderField::kTail:
            log.WriteError("recv error during download %s file's checksum", name);
            return false;
        case HeaderField::kNone:
            break;
    }
    if (header.size < 0) {
        log.WriteError("(%s) Update File Size is abnormal: %d", name, header.size);
        return false;
    }
    return true;
}

bool CUpdate::DownloadPackageFromNet(CHttpConnection& connection, const ImageInfo& package) {
    const CTaggedLog log(log_, kTag);
    CPackageReader reader(connection, images_);
    while (!reader.IsComplete()) {
        const auto section = reader.ReadMagic();
        if (section == CPackageReader::Section::kCut) {
            log.WriteError("recv error during download %s file's magic", package.FileName.c_str());
            return false;
        }
        if (section != CPackageReader::Section::kPart) {
            log.WriteError("Not correct file");
            return false;
        }
        ImageInfo& image = reader.Image();
        const HeaderField missing = reader.ReadHeader();
        if (!IsWholeHeader(image, reader.Header(), missing)) {
            return false;
        }
        TakeHeader(image, reader.Header());
        log.WriteInfo("SYS Subfile Info\n<Magic:%s><Ver:%s><Size:%d>", image.Magic.c_str(),
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
    const CTaggedLog log(log_, kTag);
    COutputFile file(image.RawPath.c_str());
    if (!file.IsOpen()) {
        log.WriteError("New file open error");
        return false;
    }
    if (DownloadFile(connection, file, image) != 0) {
        return false;
    }
    if (!file.Close()) {
        log.WriteError("file write error: %s", strerror(errno));
        return false;
    }
    CountHeader(images_, image, &ImageInfo::Download);
    log.WriteInfo("%s file copy complete", image.RawPath.c_str());
    return true;
}

int CUpdate::DownloadFile(CHttpConnection& connection, COutputFile& file, ImageInfo& image) {
    const CTaggedLog log(log_, "[CUpdate::DownloadFile]");
    auto left = static_cast<std::size_t>(image.FileSize);
    const Copied copied = CopyBytes(connection, file, left, [&](std::int64_t count) {
        Count(images_, image, &ImageInfo::Download, count);
        log.WriteInfo("Type(%d) Downloaded size: %d", image.Number(), image.Download.load());
        SendUDSUpdateStatus();
    });
    if (copied == Copied::kNotRead) {
        log.WriteError("recv error: %s", strerror(errno == 0 ? ECONNRESET : errno));
    } else if (copied == Copied::kNotWritten) {
        log.WriteError("file write error: %s", strerror(errno));
    }
    return copied == Copied::kWhole ? 0 : -1;
}

}  // namespace RMUP::Process
