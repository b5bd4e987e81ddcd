#include "process/update/UpdateInfoXml.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "config/CDeviceInfo.h"
#include "platform/Xml.h"

using QENFx::Common::Xml::Attribute;
using QENFx::Common::Xml::Node;
using QENFx::Common::Xml::NodeList;
using QENFx::Common::Xml::XmlDocument;

namespace RMUP::Process {

namespace {

constexpr char kVeterinaryName[] = "N62V";

/// The attributes of an image; all must be there.
enum FileAttribute { kName, kMajor, kMinor, kRelease, kBuild, kPath, kAttributeCount };
constexpr std::array<const char*, kAttributeCount> kAttributeNames = {"name",          "major_version", "minor_version",
                                                                      "release_patch", "build_number",  "file_path"};

bool IsThisModel(std::string_view name, const ModelIdentity& identity) {
    if (identity.modelType == kVeterinaryModel) {
        return name == kVeterinaryName;
    }
    return !name.empty() && (name == identity.project || name == identity.modelType);
}

const Node* FindModel(const NodeList& models, const ModelIdentity& identity, std::string& name) {
    for (int i = 0; i < models.getNodeCount(); ++i) {
        const Node* model = models.getNode(i);
        const Attribute* attribute = model == nullptr ? nullptr : model->getAttributeByName("name");
        if (attribute != nullptr && IsThisModel(attribute->getValue(), identity)) {
            name = attribute->getValue();
            return model;
        }
    }
    return nullptr;
}

/// The path goes into a request line, where a blank or a line end would begin something else.
bool IsPath(std::string_view path) {
    return path.starts_with('/') &&
           std::ranges::all_of(path, [](unsigned char character) { return character > ' ' && character != 0x7F; });
}

UpdateInfoError ParseOffer(const Node* file, const ImageInfos& images, ImageOffer& offer) {
    std::array<std::string, kAttributeCount> values;
    for (std::size_t i = 0; i < values.size(); ++i) {
        const Attribute* attribute = file == nullptr ? nullptr : file->getAttributeByName(kAttributeNames[i]);
        if (attribute == nullptr) {
            return UpdateInfoError::kAbnormal;
        }
        values[i] = attribute->getValue();
    }
    if (!IsPath(values[kPath])) {
        return UpdateInfoError::kAbnormal;
    }
    const auto image = std::ranges::find(images, values[kName], &ImageInfo::FileName);
    if (image == images.end()) {
        return UpdateInfoError::kUnknownName;
    }
    offer.image = image->Row.id;
    offer.name = values[kName];
    const std::string version = values[kMajor] + "." + values[kMinor] + "." + values[kRelease] + "." + values[kBuild];
    offer.version = version.c_str();
    offer.path = values[kPath];
    return UpdateInfoError::kNone;
}

}  // namespace

UpdateInfo ParseUpdateInfo(const std::string& text, const ModelIdentity& identity, const ImageInfos& images) {
    UpdateInfo info;
    XmlDocument document;
    const NodeList* models = document.LoadXML(text.c_str()) ? document.getNodeListByName("model") : nullptr;
    if (models == nullptr) {
        info.error = UpdateInfoError::kNoModels;
        return info;
    }
    const Node* model = FindModel(*models, identity, info.model);
    if (model == nullptr) {
        info.error = UpdateInfoError::kOtherModels;
        return info;
    }
    const NodeList* files = model->getNodeListByName("file_info");
    for (int i = 0; files != nullptr && i < files->getNodeCount(); ++i) {
        ImageOffer offer;
        info.error = ParseOffer(files->getNode(i), images, offer);
        if (info.error != UpdateInfoError::kNone) {
            break;
        }
        info.offers.push_back(std::move(offer));
    }
    return info;
}

}  // namespace RMUP::Process
