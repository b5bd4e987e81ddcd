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

constexpr char kInfoTag[] = "[CUpdate::GetUpdateInfoFromNet]";

constexpr char kInfoPath[] = "/bca_update_xml_vorn.xml";
constexpr char kQCPathHuman[] = "/n62/control_material.xml";
constexpr char kQCPathVeterinary[] = "/n62v_vorn/control_material.xml";

}  // namespace

CUpdate::Connection CUpdate::ConnectUpdateServer() {
    static constexpr char kTag[] = "[CUpdate::ConnectUpdateServer]";
    const std::string host = service_.config.GetContents(ConfigKey::kUpdateURL);
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
    if (Net::SetSocketTimeout(socket.Get(), SO_SNDTIMEO, kTimeoutSeconds) != 0) {
        log_->WriteError("%s Set send timeout error: %s", kTag, strerror(errno));
    }
    if (Net::SetSocketTimeout(socket.Get(), SO_RCVTIMEO, kTimeoutSeconds) != 0) {
        log_->WriteError("%s Set receive timeout error: %s", kTag, strerror(errno));
    }
    if (connect(socket.Get(), reinterpret_cast<const sockaddr*>(&server), sizeof(server)) != 0) {
        log_->WriteError("%s Connect", kTag);
        return nullptr;
    }
    log_->WriteInfo("%s Connect success", kTag);
    return std::make_unique<CHttpConnection>(std::move(socket), kHeaderLimit);
}

bool CUpdate::SendRequest(CHttpConnection& connection, const std::string& request, const char* tag) {
    const bool sent = connection.Send(request);
    if (!sent) {
        log_->WriteError("%s send message error", tag);
    }
    return sent;
}

bool CUpdate::DownloadDocument(CHttpConnection& connection, const char* path, std::string& body, const char* tag) {
    HttpEnd end;
    if (!SendRequest(connection, MakeServerRequest(service_.config.GetContents(ConfigKey::kUpdateURL), path, kHttp11),
                     tag) ||
        !ReadDocumentHeader(connection, end, tag)) {
        return false;
    }
    connection.SetLimit(kBodyLimit);
    switch (ReadHttpBody(connection, end, body)) {
        case HttpBody::kWhole:
            return true;
        case HttpBody::kInvalid:
            log_->WriteError("%s Invalid contents length", tag);
            break;
        case HttpBody::kLost:
            log_->WriteError(errno == 0 ? "%s Peer connection shutdown" : "%s Cannot receive data", tag);
            break;
    }
    return false;
}

bool CUpdate::ReadDocumentHeader(CHttpConnection& connection, HttpEnd& end, const char* tag) {
    log_->WriteInfo("%s Download HTTP header start", tag);
    std::string header;
    if (!ReadHttpHeader(connection, header)) {
        log_->WriteError("%s recv fail", tag);
        return false;
    }
    log_->WriteInfo("%s HTTP header receive complete", tag);
    const HttpLength found = ParseLength(header, end);
    if (found == HttpLength::kMissing || IsHttpRefusal(header)) {
        log_->WriteError("%s Invalid HTTP header received", tag);
        return false;
    }
    if (found == HttpLength::kInvalid) {
        log_->WriteError("%s Invalid contents length", tag);
        return false;
    }
    return true;
}

int CUpdate::DownloadUpdateInfoXML(CHttpConnection& connection, std::string& text) {
    static constexpr char kTag[] = "[CUpdate::DownloadUpdateInfoXML]";
    if (!DownloadDocument(connection, kInfoPath, text, kTag)) {
        return -1;
    }
    // The document is a text: it ends at a zero byte.
    text.resize(std::min(text.find('\0'), text.size()));
    return 0;
}

int CUpdate::DownloadQCMaterialXML(CHttpConnection& connection, const char* targetPath) {
    static constexpr char kTag[] = "[CUpdate::DownloadQCMaterialXML]";
    const char* path = device_.GetModelType() == kVeterinaryModel ? kQCPathVeterinary : kQCPathHuman;
    // The document of an earlier download must not pass for this one.
    remove(targetPath);
    std::string body;
    if (!DownloadDocument(connection, path, body, kTag)) {
        return -1;
    }
    COutputFile file(targetPath);
    if (!file.IsOpen()) {
        log_->WriteError("%s New file open error", kTag);
        return -1;
    }
    if (!file.Write({reinterpret_cast<const std::uint8_t*>(body.data()), body.size()}) || !file.Close()) {
        log_->WriteError("%s file write error: %s", kTag, strerror(errno));
        remove(targetPath);
        return -1;
    }
    return 0;
}

int CUpdate::GetUpdateInfoFromNet() {
    std::string text;
    {
        const Connection connection = ConnectUpdateServer();
        if (connection == nullptr) {
            log_->WriteError("%s Connect to update server failed", kInfoTag);
            return -1;
        }
        if (DownloadUpdateInfoXML(*connection, text) != 0) {
            return -1;
        }
    }

    const UpdateInfo info = ParseUpdateInfo(text, {device_.GetModelType(), device_.GetProject()}, images_);
    if (!IsUsable(info)) {
        return -1;
    }
    for (const ImageOffer& offer : info.offers) {
        ImageInfo& image = images_[offer.image];
        if (*image.Row.serverPath.human == '\0') {
            log_->WriteInfo("%s <%s> is not taken from the update server", kInfoTag, offer.name.c_str());
            continue;
        }
        image.IsFile = true;
        image.ServerPath = offer.path;
        image.SetNewVersion(offer.version);
    }
    return static_cast<int>(std::ranges::count_if(images_, [](const ImageInfo& image) { return image.IsFile.load(); }));
}

bool CUpdate::IsUsable(const UpdateInfo& info) {
    if (info.error == UpdateInfoError::kNoModels) {
        log_->WriteError("%s NULL pointer of 'NodeList *' is returned", kInfoTag);
        return false;
    }
    if (info.error == UpdateInfoError::kOtherModels) {
        log_->WriteError("%s Cannot find model information from XML", kInfoTag);
        return false;
    }
    log_->WriteInfo("%s Find %s model information", kInfoTag, info.model.c_str());
    for (const ImageOffer& offer : info.offers) {
        log_->WriteInfo("%s <%s> <VER:%s>", kInfoTag, offer.name.c_str(), offer.version.getVersion());
    }
    if (info.error == UpdateInfoError::kAbnormal) {
        log_->WriteError("%s Maybe abnormal XML is loaded", kInfoTag);
        return false;
    }
    if (info.error == UpdateInfoError::kUnknownName) {
        log_->WriteError("%s Cannot find update module name", kInfoTag);
        return false;
    }
    return true;
}

}  // namespace RMUP::Process
