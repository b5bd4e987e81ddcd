#include "config/ImageInfo.h"

#include "common/Constants.h"

void ImageInfo::Clear() {
    IsFile = false;
    NeedUpdate = false;
    InPackage = false;
    FileSize = 0;
    Download = 0;
    Written = 0;
    Progress = 0;
}

ImageInfo::Version ImageInfo::GetCurrentVersion() const {
    const std::lock_guard lock(mutex_);
    return currentVersion_;
}

void ImageInfo::SetCurrentVersion(const Version& version) {
    const std::lock_guard lock(mutex_);
    currentVersion_ = version;
}

ImageInfo::Version ImageInfo::GetNewVersion() const {
    const std::lock_guard lock(mutex_);
    return newVersion_;
}

void ImageInfo::SetNewVersion(const Version& version) {
    const std::lock_guard lock(mutex_);
    newVersion_ = version;
}

HeaderTail ImageInfo::GetTail() const {
    const std::lock_guard lock(mutex_);
    return tail_;
}

void ImageInfo::SetTail(const HeaderTail& tail) {
    const std::lock_guard lock(mutex_);
    tail_ = tail;
}

void FillFromCatalogue(ImageInfos& images, Wire::Model model) {
    for (ImageInfo& image : images) {
        image.Magic = image.Row.magic.Of(model);
        image.FileName = image.Row.fileName.Of(model);
        image.FilePath = kUSBMountPoint + image.FileName;
        image.DisplayName = image.Row.historyName;
        image.ServerPath = image.Row.serverPath.Of(model);
        image.RawPath = image.Row.rawPath;
    }
}
