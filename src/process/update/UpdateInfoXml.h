#pragma once

#include <string>
#include <vector>

#include "config/ImageInfo.h"
#include "platform/Text.h"

/// The document in which the update server lists its images:
///
///     <... ><model name="N62">
///         <file_info name="zel_app.n62.bin" major_version="1" minor_version="02" release_patch="03"
///                    build_number="0004" file_path="/n62/zel_app.n62.bin"/> ...
///     </model> ...</...>
namespace RMUP::Process {

/// By what the device finds its model in the document. The Veterinary model has its own name; the Human one is listed
/// under the device's project or under its model type.
struct ModelIdentity {
    std::string modelType;
    std::string project;
};

struct ImageOffer {
    ImageId image{};
    std::string name;
    QENFx::Common::Version version;
    std::string path;  ///< begins with "/" and holds no blank and no control character
};

enum class UpdateInfoError { kNone, kNoModels, kOtherModels, kAbnormal, kUnknownName };

/// What the document says for this device. After an error `model` and `offers` hold what was read before it, and
/// nothing of them may be used but for the log.
struct UpdateInfo {
    UpdateInfoError error = UpdateInfoError::kNone;
    std::string model;
    std::vector<ImageOffer> offers;
};

[[nodiscard]] UpdateInfo ParseUpdateInfo(const std::string& text, const ModelIdentity& identity,
                                         const ImageInfos& images);

}  // namespace RMUP::Process
