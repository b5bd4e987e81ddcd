#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "common/CTaggedLog.h"
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
    const CTaggedLog log(log_, "[CUpdate::ConnectUpdateServer]");
    const std::string host = service_.config.GetContents(ConfigKey::kUpdateURL);
    // Its result is the process's one; only the update worker asks.
    const hostent* entry = gethostbyname(host.c_str());
    if (entry == nullptr || entry->h_addrtype != AF_INET || entry->h_addr_list[0] == nullptr) {
        log.WriteError("get IP from domain");
        return nullptr;
    }
    sockaddr_in server{};
    server.sin_family = AF_INET;
    server.sin_port = htons(kHttpPort);
    memcpy(&server.sin_addr, entry->h_addr_list[0], sizeof(server.sin_addr));

    CDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!socket.IsOpen()) {
        log.WriteError("Socket open");
        return nullptr;
    }
    if (Net::SetSocketTimeout(socket.Get(), SO_SNDTIMEO, kTimeoutSeconds) != 0) {
        log.WriteError("Set send timeout error: %s", strerror(errno));
    }
    if (Net::SetSocketTimeout(socket.Get(), SO_RCVTIMEO, kTimeoutSeconds) != 0) {
        log.WriteError("Set receive timeout error: %s", strerror(errno));
    }
    if (connect(socket.Get(), reinterpret_cast<const sockaddr*>(&server), sizeof(server)) != 0) {
        log.WriteError("Connect");
        return nullptr;
    }
    log.WriteInfo("Connect success");
    return std::make_unique<CHttpConnection>(std::move(socket), kHeaderLimit);
}

bool CUpdate::SendRequest(CHttpConnection& connection, const std::string& request, const CTaggedLog& log) {
    const bool sent = connection.Send(request);
    if (!sent) {
        log.WriteError("send message error");
    }
    return sent;
}

bool CUpdate::DownloadDocument(CHttpConnection& connection, const char* path, std::string& body,
                               const CTaggedLog& log) {
    HttpEnd end;
    if (!SendRequest(connection, MakeServerRequest(service_.config.GetContents(ConfigKey::kUpdateURL), path, kHttp11),
                     log) ||
        !ReadDocumentHeader(connection, end, log)) {
        return false;
    }
    connection.SetLimit(kBodyLimit);
    switch (ReadHttpBody(connection, end, body)) {
        case HttpBody::kWhole:
            return true;
        case HttpBody::kInvalid:
            log.WriteError("Invalid contents length");
            break;
        case HttpBody::kLost:
            log.WriteError(errno == 0 ? "Peer connection shutdown" : "Cannot receive data");
            break;
    }
    return false;
}

bool CUpdate::ReadDocumentHeader(CHttpConnection& connection, HttpEnd& end, const CTaggedLog& log) {
    log.WriteInfo("Download HTTP header start");
    std::string header;
    if (!ReadHttpHeader(connection, header)) {
        log.WriteError("recv fail");
        return false;
    }
    log.WriteInfo("HTTP header receive complete");
    const HttpLength found = ParseLength(header, end);
    if (found == HttpLength::kMissing || IsHttpRefusal(header)) {
        log.WriteError("Invalid HTTP header received");
        return false;
    }
    if (found == HttpLength::kInvalid) {
        log.WriteError("Invalid contents length");
        return false;
    }
    return true;
}

int CUpdate::DownloadUpdateInfoXML(CHttpConnection& connection, std::string& text) {
    const CTaggedLog log(log_, "[CUpdate::DownloadUpdateInfoXML]");
    if (!DownloadDocument(connection, kInfoPath, text, log)) {
        return -1;
    }
    // The document is a text: it ends at a zero byte.
    text.resize(std::min(text.find('\0'), text.size()));
    return 0;
}

int CUpdate::DownloadQCMaterialXML(CHttpConnection& connection, const char* targetPath) {
    const CTaggedLog log(log_, "[CUpdate::DownloadQCMaterialXML]");
    const char* path = device_.GetModelType() == kVeterinaryModel ? kQCPathVeterinary : kQCPathHuman;
    // The document of an earlier download must not pass for this one.
    remove(targetPath);
    std::string body;
    if (!DownloadDocument(connection, path, body, log)) {
        return -1;
    }
    COutputFile file(targetPath);
    if (!file.IsOpen()) {
        log.WriteError("New file open error");
        return -1;
    }
    if (!file.Write({reinterpret_cast<const std::uint8_t*>(body.data()), body.size()}) || !file.Close()) {
        log.WriteError("file write error: %s", strerror(errno));
        remove(targetPath);
        return -1;
    }
    return 0;
}

int CUpdate::GetUpdateInfoFromNet() {
    const CTaggedLog log(log_, kInfoTag);
    std::string text;
    {
        const Connection connection = ConnectUpdateServer();
        if (connection == nullptr) {
            log.WriteError("Connect to update server failed");
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
            log.WriteInfo("<%s> is not taken from the update server", offer.name.c_str());
            continue;
        }
        image.IsFile = true;
        image.ServerPath = offer.path;
        image.SetNewVersion(offer.version);
    }
    return static_cast<int>(std::ranges::count_if(images_, [](const ImageInfo& image) { return image.IsFile.load(); }));
}

bool CUpdate::IsUsable(const UpdateInfo& info) {
    const CTaggedLog log(log_, kInfoTag);
    if (info.error == UpdateInfoError::kNoModels) {
        log.WriteError("NULL pointer of 'NodeList *' is returned");
        return false;
    }
    if (info.error == UpdateInfoError::kOtherModels) {
        log.WriteError("Cannot find model information from XML");
        return false;
    }
    log.WriteInfo("Find %s model information", info.model.c_str());
    for (const ImageOffer& offer : info.offers) {
        log.WriteInfo("<%s> <VER:%s>", offer.name.c_str(), offer.version.getVersion());
    }
    if (info.error == UpdateInfoError::kAbnormal) {
        log.WriteError("Maybe abnormal XML is loaded");
        return false;
    }
    if (info.error == UpdateInfoError::kUnknownName) {
        log.WriteError("Cannot find update module name");
        return false;
    }
    return true;
}

}  // namespace RMUP::Process
