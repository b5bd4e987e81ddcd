#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "config/CConfigMgr.h"
#include "net/SocketSetup.h"
#include "process/update/CUpdate.h"
#include "process/update/HttpResponse.h"
#include "process/update/ServerRequest.h"
#include "process/update/UpdateInfoXml.h"

namespace RMUP::Process {

namespace {

constexpr std::uint16_t kHttpPort = 80;
constexpr int kTimeoutSeconds = 5;

constexpr char kInfoPath[] = "/bca_update_xml_vorn.xml";
constexpr char kQCPathHuman[] = "/n62/control_material.xml";
constexpr char kQCPathVeterinary[] = "/n62v_vorn/control_material.xml";

}  // namespace

CUpdate::Connection CUpdate::ConnectUpdateServer() {
    static constexpr char kTag[] = "[CUpdate::ConnectUpdateServer]";
    const std::string host = CConfigMgr::GetInstance()->GetContents(kUpdateURL);
    // Its result is the process's one; only the update worker asks.
    const hostent* entry = gethostbyname(host.c_str());
    if (entry == nullptr || entry->h_addrtype != AF_INET || entry->h_addr_list[0] == nullptr) {
        log_->WriteError("%s get IP from domain", kTag);
        return nullptr;
    }
    sockaddr_in server{};
    server.sin_family = AF_INET;
    server.sin_port = htons(kHttpPort);
    memcpy(&server.sin_addr, entry->h_addr_list[0], sizeof(server.sin_addr));

    CDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!socket.IsOpen()) {
        log_->WriteError("%s Socket open", kTag);
        return nullptr;
    }
    if (SetSocketTimeout(socket.Get(), SO_SNDTIMEO, kTimeoutSeconds) != 0) {
        log_->WriteError("%s Set send timeout error: %s", kTag, strerror(errno));
    }
    if (SetSocketTimeout(socket.Get(), SO_RCVTIMEO, kTimeoutSeconds) != 0) {
        log_->WriteError("%s Set receive timeout error: %s", kTag, strerror(errno));
    }
    if (connect(socket.Get(), reinterpret_cast<const sockaddr*>(&server), sizeof(server)) != 0) {
        log_->WriteError("%s Connect", kTag);
        return nullptr;
    }
    log_->WriteInfo("%s Connect success", kTag);
    return std::make_unique<CHttpConnection>(std::move(socket));
}

int CUpdate::SendRequest(CHttpConnection& connection, const std::string& request, const char* tag) {
    if (!connection.Send(request)) {
        log_->WriteError("%s send message error", tag);
        return -1;
    }
    return 0;
}

int CUpdate::ReadDocumentHeader(CHttpConnection& connection, std::size_t& length, const char* tag) {
    log_->WriteInfo("%s Download HTTP header start", tag);
    std::string header;
    connection.LimitTime(kServerHeaderTime);
    if (!ReadHttpHeader(connection, header)) {
        log_->WriteError("%s recv fail", tag);
        return -1;
    }
    connection.UnlimitTime();
    log_->WriteInfo("%s HTTP header receive complete", tag);
    const HttpLength found = ParseContentLength(header, length);
    if (found == HttpLength::kMissing || IsHttpRefusal(header)) {
        log_->WriteError("%s Invalid HTTP header received", tag);
        return -1;
    }
    if (found == HttpLength::kInvalid) {
        log_->WriteError("%s Invalid contents length", tag);
        return -1;
    }
    return 0;
}

void CUpdate::LogBodyFailure(const char* tag) {
    if (errno == 0) {
        log_->WriteError("%s Peer connection shutdown", tag);
    } else {
        log_->WriteError("%s Cannot receive data", tag);
    }
}

int CUpdate::DownloadUpdateInfoXML(CHttpConnection& connection, std::string& text) {
    static constexpr char kTag[] = "[CUpdate::DownloadUpdateInfoXML]";
    std::size_t length = 0;
    if (SendRequest(connection, MakeServerRequest(kInfoPath, kHttp11), kTag) != 0 ||
        ReadDocumentHeader(connection, length, kTag) != 0) {
        return -1;
    }
    if (!ReadHttpBody(connection, length, text)) {
        LogBodyFailure(kTag);
        return -1;
    }
    // The document is a text: it ends at a zero byte.
    text.resize(std::min(text.find('\0'), text.size()));
    return 0;
}

int CUpdate::DownloadQCMaterialXML(CHttpConnection& connection, const char* targetPath) {
    static constexpr char kTag[] = "[CUpdate::DownloadQCMaterialXML]";
    const char* path = device_->GetModelType() == kVeterinaryModel ? kQCPathVeterinary : kQCPathHuman;
    std::size_t length = 0;
    if (SendRequest(connection, MakeServerRequest(path, kHttp11), kTag) != 0 ||
        ReadDocumentHeader(connection, length, kTag) != 0) {
        return -1;
    }
    COutputFile file(targetPath);
    if (!file.IsOpen()) {
        log_->WriteError("%s New file open error", kTag);
        return -1;
    }
    bool written = true;
    for (std::size_t left = length; left > 0 && written;) {
        const auto piece = connection.Take(left);
        if (piece.empty()) {
            LogBodyFailure(kTag);
            remove(targetPath);
            return -1;
        }
        written = file.Write(piece);
        left -= piece.size();
    }
    if (!written || !file.Close()) {
        log_->WriteError("%s file write error: %s", kTag, strerror(errno));
        remove(targetPath);
        return -1;
    }
    return 0;
}

int CUpdate::GetUpdateInfoFromNet(Images& images) {
    static constexpr char kTag[] = "[CUpdate::GetUpdateInfoFromNet]";
    std::string text;
    {
        const Connection connection = ConnectUpdateServer();
        if (connection == nullptr) {
            log_->WriteError("%s Connect to update server failed", kTag);
            return -1;
        }
        if (DownloadUpdateInfoXML(*connection, text) != 0) {
            return -1;
        }
    }

    const UpdateInfo info = ParseUpdateInfo(text, {device_->GetModelType(), device_->GetProject()}, images);
    if (info.error == UpdateInfoError::kNoModels) {
        log_->WriteError("%s NULL pointer of 'NodeList *' is returned", kTag);
        return -1;
    }
    if (info.error == UpdateInfoError::kOtherModels) {
        log_->WriteError("%s Cannot find model information from XML", kTag);
        return -1;
    }
    log_->WriteInfo("%s Find %s model information", kTag, info.model.c_str());
    for (const ImageOffer& offer : info.offers) {
        log_->WriteInfo("%s <%s> <VER:%s>", kTag, offer.name.c_str(), offer.version.getVersion());
    }
    if (info.error == UpdateInfoError::kAbnormal) {
        log_->WriteError("%s Maybe abnormal XML is loaded", kTag);
        return -1;
    }
    if (info.error == UpdateInfoError::kUnknownName) {
        log_->WriteError("%s Cannot find update module name", kTag);
        return -1;
    }
    for (const ImageOffer& offer : info.offers) {
        if (!IsOfRelease(offer.image)) {
            log_->WriteInfo("%s <%s> is not taken from the update server", kTag, offer.name.c_str());
            continue;
        }
        ImageInfo& image = images[static_cast<std::size_t>(offer.image)];
        image.IsFile = true;
        image.ServerPath = offer.path;
        device_->SetNewVersion(offer.image, offer.version);
    }
    return static_cast<int>(std::ranges::count_if(images, [](const ImageInfo& image) { return image.IsFile.load(); }));
}

}  // namespace RMUP::Process
